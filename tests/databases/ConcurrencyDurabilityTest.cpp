// Open modes across sessions and processes, and durability: a record whose add returned 0
// is there after the process that added it is killed.
#include "ServiceClient.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace kiv::db::testing
{
namespace
{

class OpenModeTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(first.createDatabase("Shop"), 0u); }

    DataFolder folder;
    ServiceClient first{folder.path()};
    ServiceClient second{folder.path()};
};

TEST_F(OpenModeTest, ExclusiveOpenExcludesEveryOtherOpen)
{
    uint32_t a = 0;
    uint32_t b = 0;
    ASSERT_EQ(first.open("Shop", 3, a), 0u);
    EXPECT_EQ(second.open("Shop", 2, b), result::kLocked);
    EXPECT_EQ(second.open("shop", 3, b), result::kLocked);
    EXPECT_EQ(second.deleteDatabase("Shop"), result::kLocked);
    EXPECT_NE(second.errorInfo(result::kLocked).text.find("Try again"), std::string::npos);
    ASSERT_EQ(first.close(a), 0u);
    EXPECT_EQ(second.open("Shop", 2, b), 0u);
}

TEST_F(OpenModeTest, SharedOpensCoexistButKeepExclusiveOut)
{
    uint32_t a = 0;
    uint32_t b = 0;
    uint32_t c = 0;
    ASSERT_EQ(first.open("Shop", 2, a), 0u);
    ASSERT_EQ(second.open("Shop", 2, b), 0u);
    ServiceClient third(folder.path());
    EXPECT_EQ(third.open("Shop", 3, c), result::kLocked);
    ASSERT_EQ(first.close(a), 0u);
    EXPECT_EQ(third.open("Shop", 3, c), result::kLocked);
    ASSERT_EQ(second.call(kKivDB_Terminate), 0u); // ending the request releases its opens
    EXPECT_EQ(third.open("Shop", 3, c), 0u);
}

TEST_F(OpenModeTest, ASessionThatEndsReleasesItsOpens)
{
    uint32_t handle = 0;
    {
        ServiceClient request(folder.path());
        ASSERT_EQ(request.open("Shop", 3, handle), 0u);
    }
    EXPECT_EQ(second.open("Shop", 3, handle), 0u);
}

TEST_F(OpenModeTest, AnOpenWaitsBrieflyForAConflictToEnd)
{
    uint32_t a = 0;
    ASSERT_EQ(first.open("Shop", 3, a), 0u);
    ServiceClient patient(folder.path(), "kivModifyDatabase", std::chrono::milliseconds(5000));
    std::thread closer(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            first.close(a);
        });
    uint32_t b = 0;
    EXPECT_EQ(patient.open("Shop", 2, b), 0u);
    closer.join();
}

// Runs `work` in a child process and returns its exit status.
template <typename Work> int inChild(Work work)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(OpenModeTest, ExclusiveOpenContendsAcrossProcesses)
{
    uint32_t a = 0;
    ASSERT_EQ(first.open("Shop", 3, a), 0u);
    const auto tryOpen = [this](uint32_t mode)
    {
        return inChild(
            [this, mode]
            {
                ServiceClient child(folder.path());
                uint32_t handle = 0;
                return child.open("Shop", mode, handle) == result::kLocked ? 1 : 0;
            });
    };
    EXPECT_EQ(tryOpen(2), 1);
    ASSERT_EQ(first.close(a), 0u);
    ASSERT_EQ(first.open("Shop", 2, a), 0u);
    EXPECT_EQ(tryOpen(2), 0);
    EXPECT_EQ(tryOpen(3), 1);
}

TEST(Durability, ARecordAddedBeforeAKillIsThere)
{
    DataFolder folder;
    {
        ServiceClient setup(folder.path());
        const uint32_t handle = openSampleDatabase(setup, "Shop");
        ASSERT_EQ(setup.addRecord(handle, {{"Name", "before"}}), 0u);
    }
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        ServiceClient writer(folder.path());
        uint32_t handle = 0;
        char answer = 'n';
        if (writer.open("Shop", 2, handle) == 0 && writer.addRecord(handle, {{"Name", "survivor"}}) == 0)
            answer = 'y';
        if (write(pipeEnds[1], &answer, 1) != 1)
            _exit(2);
        // Stays inside the open database, mid-request, until it is killed.
        while (true)
            pause();
    }
    char answer = 0;
    ASSERT_EQ(read(pipeEnds[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(pipeEnds[0]);
    close(pipeEnds[1]);

    ServiceClient reader(folder.path());
    uint32_t handle = 0;
    ASSERT_EQ(reader.open("Shop", 3, handle), 0u); // the killed process's lock went with it
    EXPECT_EQ(reader.column(handle, "ORDER BY KIVIDFIELD", "Name"),
              (std::vector<std::string>{"before", "survivor"}));
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "Shop.kivdb-wal") ||
                std::filesystem::exists(folder.path() / "Shop.kivdb"));
}

TEST(Durability, DeletedAndRecreatedDatabaseIsNotServedFromAStaleConnection)
{
    DataFolder folder;
    ServiceClient client(folder.path());
    uint32_t handle = openSampleDatabase(client, "Shop");
    ASSERT_EQ(client.addRecord(handle, {{"Name", "old"}}), 0u);
    ASSERT_EQ(client.close(handle), 0u); // its connection goes back to the pool
    ASSERT_EQ(client.deleteDatabase("Shop"), 0u);
    ASSERT_EQ(client.createDatabase("Shop"), 0u);
    ASSERT_EQ(client.open("Shop", 2, handle), 0u);
    EXPECT_EQ(client.recordCount(handle), 0u);
    EXPECT_EQ(client.fieldCount(handle), 1u);
}

TEST(Concurrency, ThreadsAddingToOneDatabaseLoseNothing)
{
    DataFolder folder;
    {
        ServiceClient setup(folder.path());
        openSampleDatabase(setup, "Shop");
    }
    std::vector<std::thread> workers;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t)
        workers.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 25; ++i)
                {
                    ServiceClient request(folder.path(), "kivModifyDatabase",
                                          std::chrono::milliseconds(5000));
                    uint32_t handle = 0;
                    if (request.open("Shop", 2, handle) != 0 ||
                        request.addRecord(handle, {{"Name", std::to_string(t) + "-" + std::to_string(i)}}) !=
                            0)
                        ++failures;
                }
            });
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(failures.load(), 0);
    ServiceClient reader(folder.path());
    uint32_t handle = 0;
    ASSERT_EQ(reader.open("Shop", 2, handle), 0u);
    EXPECT_EQ(reader.recordCount(handle), 100u);
    ASSERT_EQ(reader.search(handle, "ORDER BY KIVIDFIELD DESC"), 0u);
    ASSERT_EQ(reader.simple(kKivDB_MoveFirstRecord, handle), 0u);
    EXPECT_EQ(reader.getText(handle, "KIVIDFIELD").text, "100"); // every ID handed out once
}

} // namespace
} // namespace kiv::db::testing
