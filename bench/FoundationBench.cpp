// The foundation classes that every rendered record goes through: KivString (append, copy,
// Find, ReplaceAll), KivNumber (parse, text form, arithmetic) and the tag tokenizer.
#include "KivNumber.h"
#include "KivString.h"
#include "KivTagTokenizer.h"

#include <benchmark/benchmark.h>

#include <string>

namespace
{

// A page of the shape the search tag renders: one table row per record, placeholders and all.
std::string MakePage(size_t rows_i)
{
    std::string page = "<html><head><title>People</title></head><body>\n<kivSearchDatabase "
                       "databaseName=\"people\" keyFieldName=\"City\" fieldValue=\"Lyon\">\n<table>\n";
    for (size_t i = 0; i < rows_i; ++i)
        page += "<tr><td class=\"name\">&kivDBField(Name);</td><td>&kivDBField(City);</td>"
                "<td align=\"right\">&kivDBField(Age);</td><td><a href=\"mailto:x@example.com\">mail</a>"
                "</td></tr>\n";
    page += "</table>\n</kivSearchDatabase>\n<p>Page <kivPageVariable name=\"r_Page\"> of many</p>\n"
            "</body></html>\n";
    return page;
}

void BM_KivString_AppendSmall(benchmark::State& state)
{
    const KivString piece("<td>Ann Smith</td>");
    for (auto _ : state)
    {
        KivString output;
        for (int i = 0; i < state.range(0); ++i)
            output.Append(piece);
        benchmark::DoNotOptimize(output.GetCStringAccess());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0) * piece.GetLength());
}
BENCHMARK(BM_KivString_AppendSmall)->Arg(25)->Arg(10000);

// How the search tag builds its output: one filled row (about 120 bytes) appended per record.
// With range(1) the output is reserved first, which shows what the growth of the string costs.
void BM_KivString_AppendRows(benchmark::State& state)
{
    const KivString row(std::string(120, 'r').c_str());
    const unsigned int rows = unsigned(state.range(0));
    for (auto _ : state)
    {
        KivString output;
        if (state.range(1))
            output.Reserve(rows * row.GetLength());
        for (unsigned int i = 0; i < rows; ++i)
            output.Append(row);
        benchmark::DoNotOptimize(output.GetCStringAccess());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * rows);
}
BENCHMARK(BM_KivString_AppendRows)->Args({25, 0})->Args({1000, 0})->Args({10000, 0})->Args({10000, 1});

void BM_KivString_AppendCString(benchmark::State& state)
{
    for (auto _ : state)
    {
        KivString output;
        for (int i = 0; i < 25; ++i)
            output.Append("<tr><td>");
        benchmark::DoNotOptimize(output.GetCStringAccess());
    }
}
BENCHMARK(BM_KivString_AppendCString);

// A copy shares the representation; writing to it then pays for the private copy.
void BM_KivString_Copy(benchmark::State& state)
{
    const KivString source(std::string(size_t(state.range(0)), 'x').c_str());
    for (auto _ : state)
    {
        KivString copy(source);
        benchmark::DoNotOptimize(copy.GetCStringAccess());
    }
}
BENCHMARK(BM_KivString_Copy)->Arg(16)->Arg(4096);

void BM_KivString_CopyThenWrite(benchmark::State& state)
{
    const KivString source(std::string(size_t(state.range(0)), 'x').c_str());
    for (auto _ : state)
    {
        KivString copy(source);
        copy.SetAt(0, 'y');
        benchmark::DoNotOptimize(copy.GetCStringAccess());
    }
}
BENCHMARK(BM_KivString_CopyThenWrite)->Arg(16)->Arg(4096);

// The template's own search: the placeholder marker, ignoring case, in a row of text.
void BM_KivString_FindIgnoringCase(benchmark::State& state)
{
    const std::string page = MakePage(1);
    const KivString text(page.c_str());
    unsigned int found = 0;
    for (auto _ : state)
    {
        bool hit = text.Find("&kivDBField", 0, text.GetLength(), kKivString_CaseInsensitive, found);
        benchmark::DoNotOptimize(hit);
        benchmark::DoNotOptimize(found);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * found);
}
BENCHMARK(BM_KivString_FindIgnoringCase);

void BM_KivString_FindMissing(benchmark::State& state)
{
    const std::string page = MakePage(size_t(state.range(0)));
    const KivString text(page.c_str());
    unsigned int found = 0;
    for (auto _ : state)
    {
        bool hit = text.Find("&notThere", 0, text.GetLength(),
                             state.range(1) ? kKivString_CaseInsensitive : 0, found);
        benchmark::DoNotOptimize(hit);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * text.GetLength());
}
BENCHMARK(BM_KivString_FindMissing)->Args({100, 0})->Args({100, 1});

void BM_KivString_ReplaceAll(benchmark::State& state)
{
    const std::string page = MakePage(size_t(state.range(0)));
    const KivString source(page.c_str());
    const KivString replacement("Ann Smith");
    for (auto _ : state)
    {
        KivString text(source);
        unsigned int count = text.ReplaceAll("&kivDBField(Name);", replacement, 0);
        benchmark::DoNotOptimize(count);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * source.GetLength());
}
BENCHMARK(BM_KivString_ReplaceAll)->Arg(1)->Arg(100);

void BM_KivNumber_Parse(benchmark::State& state)
{
    const char* texts[] = {"12345.678", "-0.000125", "98765432109876543210.5", "42"};
    size_t next = 0;
    for (auto _ : state)
    {
        KivNumber number(texts[next++ & 3]);
        benchmark::DoNotOptimize(number.GetInternalData().GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_Parse);

void BM_KivNumber_Text(benchmark::State& state)
{
    const KivNumber number("12345.678901");
    for (auto _ : state)
    {
        KivString text = number.GetStringRepresentation();
        benchmark::DoNotOptimize(text.GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_Text);

// The form the template uses for a field with a display precision.
void BM_KivNumber_TextWithPrecision(benchmark::State& state)
{
    const KivNumber number("12345.678901");
    for (auto _ : state)
    {
        KivString text = number.GetStringRepresentation(2, true);
        benchmark::DoNotOptimize(text.GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_TextWithPrecision);

void BM_KivNumber_Add(benchmark::State& state)
{
    const KivNumber operand("1234.5678");
    for (auto _ : state)
    {
        KivNumber sum("98765.4321");
        sum.Add(operand);
        benchmark::DoNotOptimize(sum.GetInternalData().GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_Add);

void BM_KivNumber_Multiply(benchmark::State& state)
{
    const KivNumber operand("1234.5678");
    for (auto _ : state)
    {
        KivNumber product("98765.4321");
        product.Multiply(operand);
        benchmark::DoNotOptimize(product.GetInternalData().GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_Multiply);

void BM_KivNumber_Divide(benchmark::State& state)
{
    const KivNumber divisor("7.3");
    for (auto _ : state)
    {
        KivNumber quotient("98765.4321");
        quotient /= divisor;
        benchmark::DoNotOptimize(quotient.GetInternalData().GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_Divide);

// The reference for the arithmetic above: constructing the starting value alone.
void BM_KivNumber_ConstructOnly(benchmark::State& state)
{
    for (auto _ : state)
    {
        KivNumber value("98765.4321");
        benchmark::DoNotOptimize(value.GetInternalData().GetCStringAccess());
    }
}
BENCHMARK(BM_KivNumber_ConstructOnly);

void BM_KivTagTokenizer_Page(benchmark::State& state)
{
    const std::string page = MakePage(size_t(state.range(0)));
    const KivString text(page.c_str());
    for (auto _ : state)
    {
        KivTagTokenizer tokenizer(KivStringStream(text), false);
        benchmark::DoNotOptimize(tokenizer.GetFirstTokenInList());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(page.size()));
}
BENCHMARK(BM_KivTagTokenizer_Page)->Arg(1)->Arg(100)->Arg(1000);

} // namespace
