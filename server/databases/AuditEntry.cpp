// The audit log's line format: a flat JSON object whose "before" and "after" map field names
// to value texts. The reader understands exactly what the writer writes, nothing more.
#include "AuditEntry.h"

#include "FieldTypes.h"
#include "common/Text.h"

#include <array>
#include <cstdio>

namespace kiv::db
{

namespace
{

constexpr std::array<std::string_view, 10> kActionNames = {
    "record added", "record updated", "record deleted",   "all records deleted",
    "field added",  "field deleted",  "database created", "database deleted",
    "imported",     "restored"};

// The length of the UTF-8 sequence starting at `text[at]`, or 0 when the bytes there are not one.
size_t utf8SequenceAt(std::string_view text, size_t at)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(at);
    const size_t length = first >= 0xF0 && first <= 0xF4 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    if (length == 0 || at + length > text.size() || first > 0xF4)
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
    return length;
}

void appendString(std::string& out, std::string_view text)
{
    out += '"';
    for (size_t i = 0; i < text.size();)
    {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\')
            out += std::string("\\") + char(c);
        else if (c >= 0x20 && c < 0x7F)
            out += char(c);
        else if (const size_t length = c >= 0x80 ? utf8SequenceAt(text, i) : 0; length > 0)
        {
            out.append(text.substr(i, length));
            i += length;
            continue;
        }
        else
        {
            // Control characters, and bytes that are not UTF-8 (a Latin-1 page's text), as the
            // code point of the same number: the reader gives the byte back.
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
        }
        ++i;
    }
    out += '"';
}

void appendMember(std::string& out, std::string_view name, std::string_view value)
{
    out += out.size() > 1 ? "," : "";
    appendString(out, name);
    out += ':';
    appendString(out, value);
}

void appendValues(std::string& out, std::string_view name, const AuditValues& values)
{
    out += ",";
    appendString(out, name);
    out += ":{";
    for (size_t i = 0; i < values.size(); ++i)
    {
        out += i ? "," : "";
        appendString(out, values[i].first);
        out += ':';
        appendString(out, isSecretField(values[i].first) ? "(withheld)" : values[i].second);
    }
    out += '}';
}

// A reader over one line; every step answers false on anything the writer would not write.
class LineReader
{
public:
    explicit LineReader(std::string_view text) : myText(text) {}

    bool take(char expected)
    {
        if (myAt >= myText.size() || myText[myAt] != expected)
            return false;
        ++myAt;
        return true;
    }
    bool atEnd() const { return myAt == myText.size(); }

    bool string(std::string& value)
    {
        value.clear();
        if (!take('"'))
            return false;
        while (myAt < myText.size())
        {
            const char c = myText[myAt++];
            if (c == '"')
                return true;
            if (c != '\\')
            {
                value += c;
                continue;
            }
            if (myAt >= myText.size())
                return false;
            const char escaped = myText[myAt++];
            if (escaped == '"' || escaped == '\\')
                value += escaped;
            else if (escaped == 'u' && myAt + 4 <= myText.size())
            {
                unsigned code = 0;
                for (int i = 0; i < 4; ++i)
                {
                    const char h = myText[myAt++];
                    const int digit = h >= '0' && h <= '9'   ? h - '0'
                                      : h >= 'a' && h <= 'f' ? h - 'a' + 10
                                      : h >= 'A' && h <= 'F' ? h - 'A' + 10
                                                             : -1;
                    if (digit < 0)
                        return false;
                    code = code * 16 + unsigned(digit);
                }
                if (code > 0xFF)
                    return false;
                value += char(code);
            }
            else
                return false;
        }
        return false;
    }

    bool number(uint64_t& value)
    {
        const size_t start = myAt;
        value = 0;
        while (myAt < myText.size() && myText[myAt] >= '0' && myText[myAt] <= '9' && myAt - start < 19)
            value = value * 10 + uint64_t(myText[myAt++] - '0');
        return myAt > start;
    }

    bool values(AuditValues& values)
    {
        values.clear();
        if (!take('{'))
            return false;
        if (take('}'))
            return true;
        do
        {
            std::string name, value;
            if (!string(name) || !take(':') || !string(value))
                return false;
            values.emplace_back(std::move(name), std::move(value));
        } while (take(','));
        return take('}');
    }

private:
    std::string_view myText;
    size_t myAt = 0;
};

bool readMember(LineReader& reader, const std::string& name, AuditEntry& entry)
{
    if (name == "before" || name == "after")
        return reader.values(name == "before" ? entry.before : entry.after);
    if (name == "count")
        return reader.number(entry.count);
    std::string value;
    if (!reader.string(value))
        return false;
    if (name == "action")
    {
        for (size_t i = 0; i < kActionNames.size(); ++i)
            if (kActionNames[i] == value)
            {
                entry.action = static_cast<AuditAction>(i);
                return true;
            }
        return false;
    }
    std::string* const targets[] = {&entry.time,   &entry.region, &entry.database,
                                    &entry.record, &entry.user,   &entry.address,
                                    &entry.page,   &entry.field,  &entry.file};
    constexpr std::string_view names[] = {"time",    "region", "database", "record", "user",
                                          "address", "page",   "field",    "file"};
    for (size_t i = 0; i < std::size(names); ++i)
        if (names[i] == name)
        {
            *targets[i] = std::move(value);
            return true;
        }
    return true; // a member a later version added
}

} // namespace

std::string_view actionName(AuditAction action)
{
    return kActionNames[static_cast<size_t>(action)];
}

bool isSecretField(std::string_view name)
{
    const std::string folded = foldCase(name);
    for (std::string_view word : {"password", "passwd", "secret", "token", "apikey", "api_key"})
        if (folded.find(word) != std::string::npos)
            return true;
    return false;
}

std::string formatAuditEntry(const AuditEntry& entry)
{
    std::string out = "{";
    appendMember(out, "time", entry.time);
    appendMember(out, "region", entry.region);
    appendMember(out, "action", actionName(entry.action));
    appendMember(out, "database", entry.database);
    if (!entry.record.empty())
        appendMember(out, "record", entry.record);
    appendMember(out, "user", entry.user);
    if (!entry.address.empty())
        appendMember(out, "address", entry.address);
    if (!entry.page.empty())
        appendMember(out, "page", entry.page);
    if (!entry.field.empty())
        appendMember(out, "field", entry.field);
    if (!entry.file.empty())
        appendMember(out, "file", entry.file);
    if (entry.action == AuditAction::AllRecordsDeleted || entry.action == AuditAction::Imported ||
        entry.action == AuditAction::Restored)
        out += ",\"count\":" + std::to_string(entry.count);
    appendValues(out, "before", entry.before);
    appendValues(out, "after", entry.after);
    return out + "}";
}

std::optional<AuditEntry> parseAuditEntry(std::string_view line)
{
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    LineReader reader(line);
    AuditEntry entry;
    bool sawAction = false;
    if (!reader.take('{'))
        return std::nullopt;
    do
    {
        std::string name;
        if (!reader.string(name) || !reader.take(':') || !readMember(reader, name, entry))
            return std::nullopt;
        sawAction = sawAction || name == "action";
    } while (reader.take(','));
    if (!reader.take('}') || !reader.atEnd() || !sawAction || entry.time.empty())
        return std::nullopt;
    return entry;
}

std::string auditTimeNow()
{
    return utcTimeNow();
}

} // namespace kiv::db
