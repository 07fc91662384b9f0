// The search template per record: one RunTemplate call over a typical row, against a database
// callback that answers from memory, so that the time is the module's own (tokens, copies,
// placeholder searches, the field lookup and value calls through the glue).
#include "KivModuleInterface.h"
#include "SearchDBTemplateProcessor.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

namespace
{

struct MemoryField
{
    const char* name;
    uint32_t typeWord;
    const char* text;
};

const MemoryField kRecord[] = {
    {"Name", 0x02060040, "Beaumont, Juliette"},
    {"City", 0x02060020, "Lyon"},
    {"Age", 0x00020000, "47"},
    {"Email", 0x00060050, "juliette.beaumont@example.org"},
    {"Salary", 0x00050000, "41234.5678"},
};

// The service accepts the placeholder's text with or without the parentheses around the name.
const MemoryField* FindField(const char* text_i, uint32_t lengthWord_i)
{
    std::string name(text_i, lengthWord_i ? lengthWord_i - 1 : 0);
    if (name.size() >= 2 && name.front() == '(' && name.back() == ')')
        name = name.substr(1, name.size() - 2);
    for (const MemoryField& field : kRecord)
        if (strcasecmp(field.name, name.c_str()) == 0)
            return &field;
    return nullptr;
}

uint32_t WriteText(void* buffer_i, void* capacity_i, const char* text_i)
{
    uint32_t& capacity = *static_cast<uint32_t*>(capacity_i);
    const uint32_t length = uint32_t(std::strlen(text_i));
    if (length + 1 > capacity)
    {
        capacity = length + 1;
        return kKivResult_BufferTooSmall;
    }
    std::memcpy(buffer_i, text_i, length + 1);
    capacity = length;
    return 0;
}

uint32_t MemoryDatabase(void*, uint32_t selector_i, void*, void* a4, void* a5, void* a6, void* a7, void* a8)
{
    const MemoryField* field = FindField(static_cast<const char*>(a4), *static_cast<uint32_t*>(a5));
    if (field == nullptr)
        return kKivResult_NotFound;
    if (selector_i == kKivDB_GetFieldInfoByName)
    {
        *static_cast<uint32_t*>(a8) = field->typeWord;
        return 0;
    }
    if (selector_i != kKivDB_GetFieldValue)
        return kKivResult_UnknownFunction;
    switch (*static_cast<uint32_t*>(a8) & uint32_t(kKivValueKind_Mask))
    {
    case kKivValueKind_Text:
        return WriteText(a6, a7, field->text);
    case kKivValueKind_Int32:
    {
        int32_t value = std::atoi(field->text);
        std::memcpy(a6, &value, sizeof value);
        return 0;
    }
    case kKivValueKind_Double:
    {
        double value = std::strtod(field->text, nullptr);
        std::memcpy(a6, &value, sizeof value);
        return 0;
    }
    default:
        return kKivResult_UnknownError;
    }
}

uint32_t SilentServer(void*, uint32_t, void*, void*, void*, void*, void*)
{
    return 0;
}

void RunRows(benchmark::State& state, const char* body_i, bool withPrecision_i)
{
    _KIVAPI_ModuleProcessingInfo info{};
    info.requestCode = kKivRequest_ProcessTag;
    info.KivServerSupportFunction = SilentServer;
    info.KivDatabaseSupportFunction = MemoryDatabase;
    KivSearchDBTemplateProcessor processor{KivString(body_i)};
    TKivDictionary<KivString, unsigned int> precision;
    if (withPrecision_i)
        precision.Add(KivString("salary"), 2u);
    const unsigned int database = 1;
    KivString output;
    for (auto _ : state)
    {
        output.Empty();
        unsigned int result = processor.RunTemplate(&info, database, output, precision);
        benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
    state.counters["bytes_out"] = output.GetLength();
}

void BM_RunTemplate_Row(benchmark::State& state)
{
    RunRows(state, "<tr><td>&kivDBField(Name);</td><td>&kivDBField(City);</td></tr>\n", false);
}
BENCHMARK(BM_RunTemplate_Row);

void BM_RunTemplate_WideRow(benchmark::State& state)
{
    RunRows(state,
            "<tr class=\"person\"><td><a href=\"person.html?name=&kivDBField(Name);\">&kivDBField(Name);</a>"
            "</td><td>&kivDBField(City);</td><td align=\"right\">&kivDBField(Age);</td>"
            "<td><a href=\"mailto:&kivDBField(Email);\">&kivDBField(Email);</a></td>"
            "<td align=\"right\">&kivDBField(Salary);</td></tr>\n",
            true);
}
BENCHMARK(BM_RunTemplate_WideRow);

// Tokenizing the body: once per tag call, not per record.
void BM_TemplateProcessor_Construct(benchmark::State& state)
{
    const KivString body("<tr><td>&kivDBField(Name);</td><td>&kivDBField(City);</td></tr>\n");
    for (auto _ : state)
    {
        KivSearchDBTemplateProcessor processor(body);
        benchmark::DoNotOptimize(processor.GetFirstTokenInList());
    }
}
BENCHMARK(BM_TemplateProcessor_Construct);

} // namespace
