// Fuzzes page rendering the way a visitor's request meets it: the bytes are a page of a scratch
// region, full of module tags, attributes and placeholders, rendered by the server's own page
// renderer with the real database module loaded (libkivdatabase.so, as the server loads it) and
// the example people loaded into the region's database. The first byte chooses the request:
// a GET with path arguments, or a POST whose form fields feed &kivPostArgument and the editor.
// Any page must render to a response without a crash, a leak or undefined behaviour, and the
// <kivDoNotProcess> markers a page writes never reach the browser.
// fuzz-link: kivserver_core kivdatabase_static
#include "config/ServerConfig.h"
#include "logging/Log.h"
#include "modules/ModuleRegistry.h"
#include "region/RegionState.h"
#include "services/ModuleHost.h"
#include "site/SampleData.h"
#include "site/SiteHandler.h"

#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

namespace
{
namespace fs = std::filesystem;

const char* const kPeople = "FirstName:Text:40,LastName:Text:40:X,City:Text:40:X,Age:Integer,Score:Number,"
                            "Member:Boolean,Notes:LongText\n"
                            "Ann,O'Hare,Paris,34,12.50,1,\"quoted \"\"text\"\", with comma\"\n"
                            "Bob,<b>Smith</b>,Lyon,51,7,0,&kivPathArgument(q);\n"
                            "Chlo\xe9,Dupont,Paris,28,100.125,1,<kivEditDatabase>\n"
                            "Dan,Young,Madrid,45,-3,0,\n";

// The query and form a page is rendered for; they hold tag text too, which must stay text.
const char* const kQuery =
    "page=2&city=Paris&q=%3CkivSearchDatabase+databaseName%3DPeople%3E&databaseName=People";
const char* const kForm = "FirstName=Eve&LastName=%3Cscript%3E&City=Paris&databaseName=People"
                          "&kivEditDatabase_Action=Search&mode=manageFields";

// The scratch region, removed when the fuzzer exits.
fs::path scratchFolder;

void removeScratchFolder()
{
    std::error_code error;
    fs::remove_all(scratchFolder, error);
}

struct Region
{
    fs::path base;
    kiv::ServerConfig config;
    std::unique_ptr<kiv::ModuleRegistry> registry;
    std::unique_ptr<kiv::ModuleHost> host;
    std::unique_ptr<kiv::RegionStates> regions;
    std::unique_ptr<kiv::SiteHandler> site;

    Region()
    {
        base = fs::temp_directory_path() / ("kiv-page-fuzz-" + std::to_string(::getpid()));
        fs::remove_all(base);
        scratchFolder = base;
        std::atexit(removeScratchFolder);
        fs::create_directories(base / "site" / "data");
        fs::create_directories(base / "site-data");
        std::ofstream(base / "site" / "data" / "people.csv", std::ios::binary) << kPeople;
        // Tag errors are written to the log on every run; a file would only grow.
        kiv::openServerLog(std::getenv("KIV_FUZZ_SERVER_LOG") ? std::getenv("KIV_FUZZ_SERVER_LOG")
                                                              : "/dev/null");

        config.modules = {KIV_DATABASE_MODULE_FILE};
        config.modulesConfigured = true;
        config.regions.push_back(kiv::makeDefaultRegion(base / "site", base / "site-data"));
        registry = std::make_unique<kiv::ModuleRegistry>();
        registry->load(KIV_DATABASE_MODULE_FILE);
        kiv::importSampleData(config.regions.front());
        host = std::make_unique<kiv::ModuleHost>(*registry);
        host->initializeAll();
        if (!registry->modules().front()->initialized)
            std::abort(); // without the module the target would fuzz nothing of interest
        regions = std::make_unique<kiv::RegionStates>(config);
        site = std::make_unique<kiv::SiteHandler>(config, *regions, *host);
    }
};

bool containsMarker(std::string_view text)
{
    static const std::string_view marker = "kivdonotprocess>";
    for (size_t at = 0; at + marker.size() <= text.size(); ++at)
    {
        size_t i = 0;
        while (i < marker.size() && std::tolower(static_cast<unsigned char>(text[at + i])) == marker[i])
            ++i;
        if (i == marker.size() && at > 0 &&
            (text[at - 1] == '<' || (text[at - 1] == '/' && at > 1 && text[at - 2] == '<')))
            return true;
    }
    return false;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Never destroyed: the module library stays loaded until the process ends, as in a
    // server, so that what the module keeps in its globals is not taken for a leak.
    static Region& region = *new Region;
    if (size == 0 || size > 64 * 1024)
        return 0;
    const bool post = data[0] & 1;
    const std::string_view page(reinterpret_cast<const char*>(data) + 1, size - 1);
    const fs::path file = region.base / "site" / "fuzz.html";
    {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(page.data(), std::streamsize(page.size()));
    }

    kiv::HttpRequest request;
    request.method = post ? "POST" : "GET";
    request.path = "/fuzz.html";
    request.queryString = kQuery;
    request.target = request.path + "?" + request.queryString;
    request.remoteAddress = "127.0.0.1";
    request.headers = {{"Host", "127.0.0.1"}};
    if (post)
    {
        request.body = kForm;
        request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    }
    kiv::HttpResponse response;
    kiv::RegionState& state = region.regions->stateOf(region.config.regions.front());
    region.site->renderPageFile(state, file, request, response);
    if (response.status < 100 || response.status > 599)
        std::abort();
    // A page without any marker text of its own cannot produce one: the markers the module
    // wraps its output in are removed before the browser sees the page.
    if (!containsMarker(page) && containsMarker(response.body) &&
        std::string_view(kPeople).find("kivDoNotProcess") == std::string_view::npos)
        std::abort();
    return 0;
}
