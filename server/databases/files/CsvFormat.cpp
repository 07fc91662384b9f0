// RFC 4180 reading and writing. The reader is a small state machine over bytes so that quoted
// values may hold line breaks, and it refuses malformed input with the line it found it on
// instead of guessing.
#include "files/CsvFormat.h"

namespace kiv::db
{

std::string quoteCsvValue(std::string_view value)
{
    const bool needsQuotes = value.find_first_of(",\"\r\n") != std::string_view::npos ||
                             (!value.empty() && (value.front() == ' ' || value.back() == ' ' ||
                                                 value.front() == '\t' || value.back() == '\t'));
    if (!needsQuotes)
        return std::string(value);
    std::string quoted = "\"";
    for (const char c : value)
    {
        if (c == '"')
            quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

void writeCsvRow(std::ostream& out, const std::vector<std::string>& values)
{
    for (size_t i = 0; i < values.size(); ++i)
    {
        if (i)
            out.put(',');
        out << quoteCsvValue(values[i]);
    }
    out << "\r\n";
}

bool CsvReader::fail(std::string message)
{
    myError = "Row " + std::to_string(myRowNumber) + " (line " + std::to_string(myLine) + "): " + message;
    return false;
}

bool CsvReader::readRow(std::vector<std::string>& values)
{
    values.clear();
    if (!myError.empty())
        return false;
    int c = myIn.get();
    if (c == std::char_traits<char>::eof())
        return false;
    ++myRowNumber;
    if (myRowNumber == 1 && c == 0xEF)
    {
        // A UTF-8 byte-order mark, as spreadsheet programs write one, is not part of the header.
        if (myIn.get() != 0xBB || myIn.get() != 0xBF)
            return fail("the file begins with a broken byte-order mark.");
        c = myIn.get();
    }
    myRowStartLine = myLine;
    std::string value;
    size_t rowBytes = 0;
    enum class State
    {
        StartOfValue,
        Unquoted,
        Quoted,
        AfterQuote
    } state = State::StartOfValue;
    while (true)
    {
        if (++rowBytes > kMaximumRowBytes)
            return fail("the row is longer than 16 MiB.");
        const bool end = c == std::char_traits<char>::eof();
        if (c == 0)
            return fail("the row holds a NUL byte; text values cannot hold one.");
        if (state == State::Quoted)
        {
            if (end)
                return fail("a quoted value is not closed before the end of the file.");
            if (c == '"')
                state = State::AfterQuote;
            else
            {
                if (c == '\n')
                    ++myLine;
                value += char(c);
            }
        }
        else if (end || c == ',' || c == '\n' || c == '\r')
        {
            values.push_back(std::move(value));
            value.clear();
            if (c == ',')
                state = State::StartOfValue;
            else
            {
                if (c == '\r' && myIn.peek() == '\n')
                    myIn.get();
                if (!end)
                    ++myLine;
                return true;
            }
        }
        else if (state == State::AfterQuote)
        {
            if (c != '"')
                return fail("a closing quote must be followed by a comma or the end of the line.");
            value += '"'; // a doubled quote inside a quoted value
            state = State::Quoted;
        }
        else if (c == '"')
        {
            if (state != State::StartOfValue)
                return fail("a quote inside an unquoted value (quote the whole value and double the quote).");
            state = State::Quoted;
        }
        else
        {
            value += char(c);
            state = State::Unquoted;
        }
        c = myIn.get();
    }
}

} // namespace kiv::db
