// CSV as RFC 4180 writes it: values separated by commas, records by CRLF, a value quoted when
// it holds a comma, a quote, a line break or edge blanks, quotes doubled inside. The reader
// also accepts LF line ends and skips a UTF-8 byte-order mark before the header; a NUL byte is
// refused with its row. Other bytes pass through unchanged (the stored text is single-byte).
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

void writeCsvRow(std::ostream& out, const std::vector<std::string>& values);
std::string quoteCsvValue(std::string_view value);

class CsvReader
{
public:
    static constexpr size_t kMaximumRowBytes = 16 * 1024 * 1024;

    explicit CsvReader(std::istream& in) : myIn(in) {}

    // false at the end of the input or on an error (then error() is not empty).
    bool readRow(std::vector<std::string>& values);
    const std::string& error() const { return myError; }
    size_t rowNumber() const { return myRowNumber; }       // 1 for the header row
    size_t rowStartLine() const { return myRowStartLine; } // the line on which the row began

private:
    bool fail(std::string message);
    std::istream& myIn;
    std::string myError;
    size_t myRowNumber = 0;
    size_t myLine = 1;
    size_t myRowStartLine = 1;
};

} // namespace kiv::db
