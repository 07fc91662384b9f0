// Fuzzes CSV import end to end: the bytes become an import file for a database with fields of
// every type, imported through the service as the module would. Any input must import or be
// refused with a message, and a refused import must leave the records as they were.
// fuzz-link: kivserver_databases
// fuzz-gate-runs: 15000
#include "DatabaseService.h"
#include "ScratchFolder.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace
{
struct Fixture
{
    std::filesystem::path folder;
    std::unique_ptr<kiv::db::DatabaseService> service;
    kiv::db::Database* database = nullptr;

    Fixture()
    {
        folder = fuzz::makeScratchFolder("kiv-csv-fuzz");
        kiv::db::ServiceEnvironment environment;
        environment.dataFolder = folder;
        service = std::make_unique<kiv::db::DatabaseService>(environment);
        kiv::db::DatabaseHandle handle = 0;
        service->openDatabase("Fuzz", kiv::db::OpenMode::Exclusive, kiv::db::OpenIntent::CreateIfMissing, "",
                              handle);
        database = service->database(handle);
        const std::pair<const char*, uint32_t> fields[] = {
            {"Name", 0x02060010},   {"Price", 0x04050000},  {"Qty", 0x00020000},  {"Stock", 0x00030000},
            {"Weight", 0x00040000}, {"Active", 0x00010000}, {"Notes", 0x00070000}};
        for (const auto& [field, type] : fields)
            database->addField(field, type);
    }

    uint32_t count()
    {
        uint32_t records = 0;
        database->recordCount(records);
        return records;
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Fixture fixture;
    {
        std::filesystem::create_directories(fixture.folder / "exports");
        std::ofstream out(fixture.folder / "exports" / "input.csv", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
    }
    const uint32_t before = fixture.count();
    uint32_t imported = 0;
    const uint32_t code = fixture.database->importRecords("input.csv", imported);
    const uint32_t after = fixture.count();
    if (code == 0 && after != before + imported)
        std::abort();
    if (code != 0 && after != before)
        std::abort(); // a failed import imports nothing
    if (after > 1000)
        fixture.database->deleteAllRecords();
    return 0;
}
