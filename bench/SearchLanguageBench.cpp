// The embedded service's search language parser: the criteria the search tag builds for a
// page (one or two comparisons and an ORDER BY) and a long generated chain.
#include "search/SearchLanguage.h"

#include <benchmark/benchmark.h>

#include <string>

namespace
{

void Parse(benchmark::State& state, const std::string& text_i)
{
    for (auto _ : state)
    {
        auto parsed = kiv::db::search::parseSearch(text_i);
        benchmark::DoNotOptimize(parsed);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text_i.size()));
}

void BM_SearchLanguage_PageCriteria(benchmark::State& state)
{
    Parse(state, "City = 'Lyon' ORDER BY Name");
}
BENCHMARK(BM_SearchLanguage_PageCriteria);

void BM_SearchLanguage_TwoConditions(benchmark::State& state)
{
    Parse(state, "City = 'Saint-Jean-d''Angely' AND Age >= 30 ORDER BY Name DESC, Age");
}
BENCHMARK(BM_SearchLanguage_TwoConditions);

void BM_SearchLanguage_Nested(benchmark::State& state)
{
    Parse(state, "(City = 'Lyon' OR City = 'Nice') AND NOT (Name BEGINSWITH 'A' OR Email CONTAINS 'x') "
                 "ORDER BY Name");
}
BENCHMARK(BM_SearchLanguage_Nested);

// A chain as long as the parser accepts.
void BM_SearchLanguage_LongChain(benchmark::State& state)
{
    std::string text;
    for (int i = 0; i < state.range(0); ++i)
        text += (i ? " OR " : "") + std::string("Age = ") + std::to_string(i);
    Parse(state, text);
}
BENCHMARK(BM_SearchLanguage_LongChain)->Arg(16)->Arg(256);

} // namespace
