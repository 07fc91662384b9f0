// Fuzzes CSV import end to end: the bytes become an import file for a database with fields of
// every type, imported through the service as the module would. Any input must import or be
// refused with a message, and a refused import must leave the records as they were.
// fuzz-link: kivserver_databases
// fuzz-gate-runs: 15000
#include "DatabaseResultCodes.h"
#include "DatabaseSession.h"
#include "KivModuleInterface.h"
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
    std::unique_ptr<kiv::db::DatabaseSession> session;
    uint32_t handle = 0;

    uint32_t call(uint32_t selector, void* a4 = nullptr, void* a5 = nullptr, void* a8 = nullptr)
    {
        return session->handle(selector, &handle, a4, a5, nullptr, nullptr, a8);
    }

    Fixture()
    {
        folder = fuzz::makeScratchFolder("kiv-csv-fuzz");
        session = std::make_unique<kiv::db::DatabaseSession>(kiv::db::SessionEnvironment{folder});
        session->setCurrentTag("kivEditDatabase");
        std::string name = "Fuzz";
        uint32_t size = uint32_t(name.size() + 1);
        uint32_t mode = 3;
        session->handle(kKivDB_OpenDatabase, &handle, name.data(), &size, nullptr, nullptr, &mode);
        const std::pair<const char*, uint32_t> fields[] = {
            {"Name", 0x02060010},   {"Price", 0x04050000},  {"Qty", 0x00020000},  {"Stock", 0x00030000},
            {"Weight", 0x00040000}, {"Active", 0x00010000}, {"Notes", 0x00070000}};
        for (const auto& [field, type] : fields)
        {
            std::string text = field;
            uint32_t length = uint32_t(text.size() + 1);
            uint32_t word = type;
            call(kKivDB_AddField, text.data(), &length, &word);
        }
    }

    uint32_t count()
    {
        uint32_t records = 0;
        call(kKivDB_GetRecordCount, nullptr, nullptr, &records);
        return records;
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Fixture fixture;
    const auto file = fixture.folder / "input.csv";
    {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
    }
    const uint32_t before = fixture.count();
    std::string path = file.string();
    uint32_t length = uint32_t(path.size() + 1);
    uint32_t imported = 0;
    const uint32_t code = fixture.call(kKivDB_Import, path.data(), &length, &imported);
    const uint32_t after = fixture.count();
    if (code == 0 && after != before + imported)
        std::abort();
    if (code != 0 && after != before)
        std::abort(); // a failed import imports nothing
    if (after > 1000)
        fixture.call(kKivDB_DeleteAllRecords);
    return 0;
}
