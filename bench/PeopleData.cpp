// The people records of the benchmarks. The values hold no HTML special characters, so a page
// that encodes them (the PHP peer) and one that does not (the search template) give the same
// bytes.
#include "PeopleData.h"

#include "DatabaseService.h"
#include "files/CsvFormat.h"
#include "KivModuleInterface.h"

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace kivbench
{

namespace
{

const char* const kCities[] = {
    "Aberdeen", "Amsterdam", "Antwerp", "Athens",    "Barcelona", "Basel",     "Berlin",  "Bilbao",
    "Bologna",  "Bordeaux",  "Bristol", "Brussels",  "Budapest",  "Cardiff",   "Cologne", "Copenhagen",
    "Cork",     "Dresden",   "Dublin",  "Edinburgh", "Florence",  "Geneva",    "Genoa",   "Ghent",
    "Glasgow",  "Graz",      "Hamburg", "Helsinki",  "Krakow",    "Leeds",     "Leipzig", "Lille",
    "Lisbon",   "Lyon",      "Madrid",  "Malaga",    "Marseille", "Milan",     "Munich",  "Nantes",
    "Naples",   "Nice",      "Oslo",    "Porto",     "Prague",    "Rotterdam", "Seville", "Stockholm",
    "Toulouse", "Turin"};

const char* const kFirstNames[] = {
    "Ada",    "Ben",   "Clara", "David", "Elena", "Felix",   "Grace",  "Hugo", "Ines", "Jonas", "Karin",
    "Luca",   "Marta", "Nils",  "Olga",  "Pablo", "Quentin", "Rosa",   "Sven", "Tara", "Ugo",   "Vera",
    "Walter", "Xenia", "Yann",  "Zoe",   "Anton", "Berit",   "Carlos", "Dora", "Emil", "Freya"};

const char* const kLastNames[] = {
    "Archer",  "Baker",  "Carter",  "Dumont",  "Eriksen", "Fischer", "Garcia",    "Hansen", "Ivanova",
    "Jansen",  "Keller", "Lambert", "Moreau",  "Novak",   "Olsen",   "Petit",     "Quinn",  "Rossi",
    "Schmidt", "Torres", "Ulrich",  "Vidal",   "Weber",   "Xavier",  "Young",     "Zimmer", "Berger",
    "Costa",   "Dubois", "Engel",   "Ferrari", "Girard",  "Horvat",  "Lindqvist", "Martin", "Nowak"};

// A fixed linear congruential sequence: the same records on every machine and every run.
class Sequence
{
public:
    uint32_t next(uint32_t below_i)
    {
        myState = myState * 6364136223846793005ULL + 1442695040888963407ULL;
        return uint32_t((myState >> 33) % below_i);
    }

private:
    uint64_t myState = 20240611;
};

template <typename T, size_t N> constexpr uint32_t countOf(T (&)[N])
{
    return uint32_t(N);
}

void check(uint32_t result_i, kiv::db::DatabaseService& service_i, const std::string& what_i)
{
    if (result_i != 0)
        throw std::runtime_error("cannot " + what_i + ": " + service_i.lastFailure().line);
}

} // namespace

void writePeopleCsv(const std::filesystem::path& file, size_t count)
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
    kiv::db::writeCsvRow(out, {"Name", "City", "Age", "Email", "Phone"});
    Sequence random;
    std::vector<std::string> row(5);
    for (size_t i = 0; i < count; ++i)
    {
        const std::string first = kFirstNames[random.next(countOf(kFirstNames))];
        const std::string last = kLastNames[random.next(countOf(kLastNames))];
        row[0] = first + " " + last;
        row[1] = kCities[random.next(countOf(kCities))];
        row[2] = std::to_string(18 + random.next(70));
        row[3] = first + "." + last + std::to_string(i) + "@example.org";
        for (char& c : row[3])
            c = char(std::tolower(static_cast<unsigned char>(c)));
        row[4] = "+33 1 " + std::to_string(10 + random.next(90)) + " " +
                 std::to_string(10 + random.next(90)) + " " + std::to_string(10 + random.next(90));
        kiv::db::writeCsvRow(out, row);
    }
}

void loadPeople(const std::filesystem::path& dataFolder, const std::string& name,
                const std::filesystem::path& csv, bool cityNameIndex)
{
    std::filesystem::create_directories(dataFolder);
    {
        kiv::db::ServiceEnvironment environment;
        environment.dataFolder = dataFolder;
        environment.exportsFolder = std::filesystem::absolute(csv).parent_path(); // where the file is
        kiv::db::DatabaseService service(environment);
        kiv::db::DatabaseHandle handle = 0;
        check(service.openDatabase(name, kiv::db::OpenMode::Exclusive, kiv::db::OpenIntent::CreateIfMissing,
                                   "", handle),
              service, "create " + name);
        kiv::db::Database& database = *service.database(handle);
        const uint32_t indexed = cityNameIndex ? 0 : kKivFieldFlag_Indexed;
        const std::pair<const char*, uint32_t> fields[] = {
            {"Name", (kKivFieldType_Text << kKivFieldTypeShift) | 40 | indexed},
            {"City", (kKivFieldType_Text << kKivFieldTypeShift) | 40 | indexed},
            {"Age", kKivFieldType_Integer << kKivFieldTypeShift},
            {"Email", (kKivFieldType_Text << kKivFieldTypeShift) | 80},
            {"Phone", (kKivFieldType_Text << kKivFieldTypeShift) | 20}};
        for (auto [field, typeWord] : fields)
            check(database.addField(field, typeWord), service, std::string("add the field ") + field);
        uint32_t imported = 0;
        check(database.importRecords(csv.filename().string(), imported), service, "import " + csv.string());
        // Declared as a site's administrator declares it (kiv-server db index add People City,Name),
        // so that kiv-server lists it and the benchmark gives its peers the same index.
        if (cityNameIndex)
            check(database.addIndex("City", "Name"), service, "add the index on (City, Name)");
    }
}

} // namespace kivbench
