// The access log's quoted fields: what visitors send cannot end a field early or forge a line;
// logs opened again (logrotate's SIGUSR1) while threads write lose and split no line.
#include "logging/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>
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

TEST(AccessLog, ReopeningWhileThreadsWriteLosesAndSplitsNoLine)
{
    fs::path folder = fs::temp_directory_path() / ("kiv-rotate-" + std::to_string(::getpid()));
    fs::remove_all(folder);
    fs::create_directories(folder);
    fs::path file = folder / "access.log";
    openAccessLog(file);
    constexpr int kThreads = 4;
    constexpr int kLines = 2000;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back(
            [t]
            {
                for (int i = 0; i < kLines; ++i)
                    writeAccessLog({"127.0.0.1", "",
                                    "GET /t" + std::to_string(t) + "/" + std::to_string(i) + " HTTP/1.1", 200,
                                    10, "-", "rotation"});
            });
    // Renamed as logrotate does, then opened again by name, five times while they write.
    for (int rotation = 1; rotation <= 5; ++rotation)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        fs::rename(file, folder / ("access.log." + std::to_string(rotation)));
        reopenLogs();
    }
    for (auto& writer : writers)
        writer.join();
    openAccessLog({});
    size_t lines = 0;
    for (const auto& entry : fs::directory_iterator(folder))
    {
        std::ifstream in(entry.path());
        std::string line;
        while (std::getline(in, line))
        {
            ++lines;
            EXPECT_EQ(line.rfind("127.0.0.1 - - [", 0), 0u) << line;
            EXPECT_NE(line.find("\"rotation\""), std::string::npos) << line;
        }
    }
    EXPECT_EQ(lines, size_t(kThreads * kLines));
    EXPECT_TRUE(fs::exists(file)) << "the last reopening made the file again";
    fs::remove_all(folder);
}

} // namespace
} // namespace kiv
