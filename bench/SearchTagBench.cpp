// One whole kivSearchDatabase call through the module's real entry, ProcessKivRequest, against
// the embedded database: the pages of scripts/bench.sh without HTTP and page rendering.
// KIV_BENCH_RECORDS sets the number of records (default 100000).
#include "BenchHost.h"
#include "PeopleData.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

namespace
{

namespace fs = std::filesystem;

// Both databases, made once per run in a scratch folder and removed at exit.
struct Fixture
{
    Fixture()
    {
        const char* records = std::getenv("KIV_BENCH_RECORDS");
        folder = fs::temp_directory_path() / ("kiv-bench-search-" + std::to_string(::getpid()));
        fs::create_directories(folder);
        kivbench::writePeopleCsv(folder / "people.csv",
                                 records ? std::strtoul(records, nullptr, 10) : 100000);
        kivbench::loadPeople(folder, "People", folder / "people.csv", false);
        kivbench::loadPeople(folder, "PeopleCityName", folder / "people.csv", true);
        host = std::make_unique<kivbench::BenchHost>(KIV_BENCH_MODULE_FILE, folder);
    }
    ~Fixture()
    {
        host.reset();
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    fs::path folder;
    std::unique_ptr<kivbench::BenchHost> host;
};

Fixture& fixture()
{
    static Fixture instance;
    return instance;
}

const char* databaseFor(const benchmark::State& state)
{
    return state.range(0) ? "PeopleCityName" : "People";
}

void runCall(benchmark::State& state, kivbench::TagCall call)
{
    auto& host = *fixture().host;
    size_t bytes = 0;
    for (auto _ : state)
    {
        call.output.clear();
        call.pageVariables.clear();
        const uint32_t result = host.runTag(call);
        if (result != 0)
        {
            state.SkipWithError(("tag failed: " + call.errorHeadline).c_str());
            break;
        }
        bytes = call.output.size();
    }
    state.counters["bytes_out"] = double(bytes);
    state.SetLabel(databaseFor(state));
}

// The 25-row page: one city, ordered by name, page 2, with the result variables.
void BM_SearchTag_CityPage25(benchmark::State& state)
{
    kivbench::TagCall call;
    call.tagName = "kivSearchDatabase";
    call.parameters = {{"databaseName", databaseFor(state)},
                       {"keyFieldName", "City"},
                       {"fieldValue", "Lyon"},
                       {"orderByField", "Name"},
                       {"resultsPerPage", "25"},
                       {"page", "2"},
                       {"resultVariableName", "found"}};
    call.body = "<tr><td>&kivDBField(Name);</td><td>&kivDBField(City);</td><td>&kivDBField(Age);</td>"
                "<td>&kivDBField(Email);</td><td>&kivDBField(Phone);</td></tr>\n";
    runCall(state, call);
}
BENCHMARK(BM_SearchTag_CityPage25)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// The 10,000-row page: every record ordered by name, the result limit raised.
void BM_SearchTag_Rows10000(benchmark::State& state)
{
    kivbench::TagCall call;
    call.tagName = "kivSearchDatabase";
    call.parameters = {
        {"databaseName", databaseFor(state)}, {"orderByField", "Name"}, {"resultsPerPage", "10000"}};
    call.preferences["kivSearchDatabasePref_MaxResults"] = "10000";
    call.body = "<TR><TD>&kivDBField(Name);</TD>\n<TD>&kivDBField(City);</TD>\n<TD>&kivDBField(Age);</TD>\n"
                "<TD>&kivDBField(Email);</TD>\n<TD>&kivDBField(Phone);</TD>\n</TR>\n";
    runCall(state, call);
}
BENCHMARK(BM_SearchTag_Rows10000)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
