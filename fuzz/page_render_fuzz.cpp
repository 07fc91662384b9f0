// Fuzzes page rendering the way a visitor's request meets it: the bytes are a page of a scratch
// region, full of module tags, attributes and placeholders, rendered by the server's own page
// renderer with the real database module loaded (libkivdatabase.so, as the server loads it) and
// the example people loaded into the region's database. The first byte chooses the request:
// a GET with path arguments, or a POST whose form fields feed &kivPostArgument and the editor.
// Any page must render to a response without a crash, a leak or undefined behaviour, and the
// <kivDoNotProcess> markers the module wraps its output in never reach the browser.
//
// After a page that may write (it names kivModifyDatabase or kivEditDatabase) the region's
// databases and files are put back as they were, so an input renders the same alone as in a
// run: a crash input replays from the corpus, and no page shows text an earlier input stored.
// fuzz-link: kivserver_core kivdatabase_static
// fuzz-gate-runs: 1000
#include "common/Text.h"
#include "config/ServerConfig.h"
#include "logging/Log.h"
#include "modules/ModuleRegistry.h"
#include "region/RegionState.h"
#include "services/ModuleHost.h"
#include "site/SampleData.h"
#include "site/SiteHandler.h"
#include "ScratchFolder.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
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

// A harness that cannot put the region back would fuzz something else than it says.
[[noreturn]] void harnessFailure(const std::string& what)
{
    std::fprintf(stderr, "page_render_fuzz: %s\n", what.c_str());
    std::abort();
}

struct Region
{
    fs::path base;
    kiv::ServerConfig config;
    std::unique_ptr<kiv::ModuleRegistry> registry;
    std::unique_ptr<kiv::ModuleHost> host;
    std::unique_ptr<kiv::RegionStates> regions;
    std::unique_ptr<kiv::SiteHandler> site;
    std::string initialDatabases;         // the database list right after the sample import
    std::set<std::string> initialEntries; // the data folder's entries at that moment

    Region()
    {
        base = fuzz::makeScratchFolder("kiv-page-fuzz");
        fs::create_directories(base / "site" / "data");
        fs::create_directories(base / "site-data");
        std::ofstream(base / "site" / "data" / "people.csv", std::ios::binary) << kPeople;
        // Tag errors are written to the log on every run; a file would only grow.
        kiv::openServerLog(std::getenv("KIV_FUZZ_SERVER_LOG") ? std::getenv("KIV_FUZZ_SERVER_LOG")
                                                              : "/dev/null");

        config.modules = {KIV_DATABASE_MODULE_FILE};
        config.modulesConfigured = true;
        config.regions.push_back(kiv::makeDefaultRegion(base / "site", base / "site-data"));
        // The query and the form carry markup, which the public-page guard would refuse before
        // any writing tag runs, and the fuzzer is one client writing thousands of times a
        // minute; the guard and the rate have tests of their own, the tags are fuzzed here.
        config.regions.front().policy.refuseMarkup = false;
        config.regions.front().policy.publicWritesPerMinute = 0;
        registry = std::make_unique<kiv::ModuleRegistry>();
        registry->load(KIV_DATABASE_MODULE_FILE);
        kiv::importSampleData(config.regions.front());
        host = std::make_unique<kiv::ModuleHost>(*registry);
        host->initializeAll();
        if (!registry->modules().front()->initialized)
            harnessFailure("the module did not initialize"); // nothing of interest to fuzz
        regions = std::make_unique<kiv::RegionStates>(config);
        site = std::make_unique<kiv::SiteHandler>(config, *regions, *host);
        initialDatabases = databaseList();
        initialEntries = dataFolderEntries();
    }

    // A visitor's request (GET or POST, with kQuery and kForm), or the harness's own POST
    // without arguments (its pages write, which a GET may not).
    enum class Request
    {
        VisitorGet,
        VisitorPost,
        Harness
    };

    kiv::HttpResponse render(std::string_view page, Request kind)
    {
        const bool post = kind != Request::VisitorGet;
        const fs::path file = base / "site" / "fuzz.html";
        {
            std::ofstream out(file, std::ios::binary | std::ios::trunc);
            out.write(page.data(), std::streamsize(page.size()));
        }
        kiv::HttpRequest request;
        request.method = post ? "POST" : "GET";
        request.path = "/fuzz.html";
        request.queryString = kind == Request::Harness ? "" : kQuery;
        request.target = request.path + (request.queryString.empty() ? "" : "?" + request.queryString);
        request.remoteAddress = "127.0.0.1";
        request.headers = {{"Host", "127.0.0.1"}};
        if (kind == Request::VisitorPost)
        {
            request.body = kForm;
            request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
        }
        kiv::HttpResponse response;
        site->renderPageFile(regions->stateOf(config.regions.front()), file, request, response);
        return response;
    }

    std::string databaseList()
    {
        return render("<kivModifyDatabase mode=\"listDatabases\">", Request::Harness).body;
    }

    std::set<std::string> dataFolderEntries() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(config.regions.front().dataFolder))
            names.insert(entry.path().filename().string());
        return names;
    }

    // Deletes every database through the module, loads the sample again and removes the files
    // pages wrote (exports). A file beside a database's own (its journal) stays: the name
    // begins with that of a file the folder held at the start.
    void restore()
    {
        // The list names the databases separated by commas, which no name may hold.
        const std::string names = databaseList();
        std::string deletes;
        for (size_t start = 0; start <= names.size();)
        {
            const size_t comma = std::min(names.find(',', start), names.size());
            deletes += "<kivModifyDatabase mode=\"deleteDatabase\" databaseName=\"" +
                       kiv::htmlEncode(names.substr(start, comma - start)) + "\">";
            start = comma + 1;
        }
        render(deletes, Request::Harness);
        kiv::importSampleData(config.regions.front());
        for (const auto& name : dataFolderEntries())
        {
            const bool known =
                std::any_of(initialEntries.begin(), initialEntries.end(),
                            [&](const std::string& initial) { return name.rfind(initial, 0) == 0; });
            if (!known)
                fs::remove_all(config.regions.front().dataFolder / name);
        }
        if (databaseList() != initialDatabases)
            harnessFailure("the databases could not be put back: " + databaseList());
    }
};

bool mayWrite(std::string_view page)
{
    return kiv::findIgnoringCase(page, "kivModifyDatabase") != std::string_view::npos ||
           kiv::findIgnoringCase(page, "kivEditDatabase") != std::string_view::npos;
}

// "<kivDoNotProcess>" or "</kivDoNotProcess>", any case, blanks allowed before the '>'.
size_t countMarkers(std::string_view text)
{
    static const std::string_view name = "kivDoNotProcess";
    size_t count = 0;
    for (size_t at = kiv::findIgnoringCase(text, name); at != std::string_view::npos;
         at = kiv::findIgnoringCase(text, name, at + 1))
    {
        const bool opened =
            (at >= 1 && text[at - 1] == '<') || (at >= 2 && text[at - 1] == '/' && text[at - 2] == '<');
        size_t close = at + name.size();
        while (close < text.size() && std::isspace(static_cast<unsigned char>(text[close])))
            ++close;
        if (opened && close < text.size() && text[close] == '>')
            ++count;
    }
    return count;
}

// A page may form markers of its own: `<kivDoNotPr</kivSearchDatabase>ocess>` is one once the
// stray end tag is dropped, and a value the page stores may complete one where a later tag
// shows it. Whatever the order, each such marker is made of the page's own characters, so the
// page can form no more markers than its characters can spell. The sample data, query and form
// hold no piece of a marker, and the markers of the module's own output are what must go.
size_t markersThePageCanSpell(std::string_view page)
{
    static const std::string_view letters = "<kivdonotprocess>";
    size_t available[256] = {};
    for (const char c : page)
        ++available[std::tolower(static_cast<unsigned char>(c))];
    size_t needed[256] = {};
    for (const char c : letters)
        ++needed[static_cast<unsigned char>(c)];
    size_t markers = std::numeric_limits<size_t>::max();
    for (const char c : letters)
        markers = std::min(markers,
                           available[static_cast<unsigned char>(c)] / needed[static_cast<unsigned char>(c)]);
    return markers;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Never destroyed: the module library stays loaded until the process ends, as in a
    // server, so that what the module keeps in its globals is not taken for a leak.
    static Region& region = *new Region;
    if (size == 0 || size > 64 * 1024)
        return 0;
    const auto kind = data[0] & 1 ? Region::Request::VisitorPost : Region::Request::VisitorGet;
    const std::string_view page(reinterpret_cast<const char*>(data) + 1, size - 1);
    const kiv::HttpResponse response = region.render(page, kind);
    if (response.status < 100 || response.status > 599)
        std::abort();
    if (countMarkers(response.body) > markersThePageCanSpell(page))
        std::abort();
    if (mayWrite(page))
        region.restore();
    return 0;
}
