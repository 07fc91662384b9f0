// The access log's quoted fields: what visitors send cannot end a field early or forge a line.
#include "logging/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

std::string accessLogLineFor(const AccessRecord& record)
{
    fs::path file = fs::temp_directory_path() / ("kiv-access-" + std::to_string(::getpid()) + ".log");
    fs::remove(file);
    openAccessLog(file);
    writeAccessLog(record);
    openAccessLog({}); // back to standard error
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    fs::remove(file);
    return text.str();
}

TEST(AccessLog, QuotedFieldsEscapeQuotesAndBackslashes)
{
    // A user agent ending in a backslash would otherwise escape the closing quote.
    std::string line = accessLogLineFor({"127.0.0.1", "", "GET / HTTP/1.1", 200, 10, "a\"b", "agent\\"});
    EXPECT_NE(line.find("\"a\\\"b\""), std::string::npos) << line;
    EXPECT_NE(line.find("\"agent\\\\\"\n"), std::string::npos) << line;
}

TEST(AccessLog, LineBreaksFromVisitorsCannotStartANewLine)
{
    std::string line =
        accessLogLineFor({"127.0.0.1", "", "GET / HTTP/1.1", 200, 10, "-", "x\r\n127.0.0.1 - forged"});
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
}

} // namespace
} // namespace kiv
