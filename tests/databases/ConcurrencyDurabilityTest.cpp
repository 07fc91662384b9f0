// Open modes across sessions and processes, and durability: a record whose add returned 0
// is there after the process that added it is killed.
#include "ServiceTesting.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace kiv::db::testing
{
namespace
{

uint32_t tryOpen(DatabaseService& service, const std::string& name, OpenMode mode)
{
    DatabaseHandle handle = 0;
    return service.openDatabase(name, mode, OpenIntent::MustExist, "", handle);
}

class OpenModeTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(first.createDatabase("Shop"), 0u); }

    DataFolder folder;
    DatabaseService first{environmentIn(folder.path())};
    DatabaseService second{environmentIn(folder.path())};
};

TEST_F(OpenModeTest, ExclusiveOpenExcludesEveryOtherOpenAndSharedOpensCoexist)
{
    ASSERT_EQ(tryOpen(first, "Shop", OpenMode::Exclusive), 0u);
    EXPECT_EQ(tryOpen(second, "Shop", OpenMode::Shared), result::kLocked);
    EXPECT_EQ(tryOpen(second, "shop", OpenMode::Exclusive), result::kLocked);
    EXPECT_EQ(second.deleteDatabase("Shop"), result::kLocked);
    EXPECT_NE(second.errorText(result::kLocked).find("Try again"), std::string::npos);
    first.disconnect(); // ending the request releases its opens
    ASSERT_EQ(tryOpen(first, "Shop", OpenMode::Shared), 0u);
    ASSERT_EQ(tryOpen(second, "Shop", OpenMode::Shared), 0u);
    DatabaseService third(environmentIn(folder.path()));
    EXPECT_EQ(tryOpen(third, "Shop", OpenMode::Exclusive), result::kLocked);
    first.disconnect();
    {
        DatabaseService request(environmentIn(folder.path()));
        EXPECT_EQ(tryOpen(request, "Shop", OpenMode::Exclusive), result::kLocked);
    }
    second.disconnect();
    EXPECT_EQ(tryOpen(third, "Shop", OpenMode::Exclusive), 0u);
}

TEST_F(OpenModeTest, AnOpenWaitsBrieflyForAConflictToEnd)
{
    ASSERT_EQ(tryOpen(first, "Shop", OpenMode::Exclusive), 0u);
    DatabaseService patient(environmentIn(folder.path(), std::chrono::milliseconds(5000)));
    std::thread closer(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            first.disconnect();
        });
    EXPECT_EQ(tryOpen(patient, "Shop", OpenMode::Shared), 0u);
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
    ASSERT_EQ(tryOpen(first, "Shop", OpenMode::Exclusive), 0u);
    const auto inOtherProcess = [this](OpenMode mode)
    {
        return inChild(
            [this, mode]
            {
                DatabaseService child(environmentIn(folder.path()));
                return tryOpen(child, "Shop", mode) == result::kLocked ? 1 : 0;
            });
    };
    EXPECT_EQ(inOtherProcess(OpenMode::Shared), 1);
    first.disconnect();
    ASSERT_EQ(tryOpen(first, "Shop", OpenMode::Shared), 0u);
    EXPECT_EQ(inOtherProcess(OpenMode::Shared), 0);
    EXPECT_EQ(inOtherProcess(OpenMode::Exclusive), 1);
}

TEST(Durability, ARecordAddedBeforeAKillIsThere)
{
    DataFolder folder;
    {
        DatabaseService setup(environmentIn(folder.path()));
        ASSERT_EQ(addRecord(openSampleDatabase(setup, "Shop"), {{"Name", "before"}}), 0u);
    }
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        DatabaseService writer(environmentIn(folder.path()));
        DatabaseHandle handle = 0;
        char answer = 'n';
        if (writer.openDatabase("Shop", OpenMode::Shared, OpenIntent::MustExist, "", handle) == 0 &&
            addRecord(*writer.database(handle), {{"Name", "survivor"}}) == 0)
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

    DatabaseService reader(environmentIn(folder.path()));
    Database& shop = open(reader, "Shop", OpenMode::Exclusive); // the killed process's lock went with it
    EXPECT_EQ(column(shop, "ORDER BY KIVIDFIELD", "Name"), (std::vector<std::string>{"before", "survivor"}));
}

TEST(Durability, DeletedAndRecreatedDatabaseIsNotServedFromAStaleConnection)
{
    DataFolder folder;
    DatabaseService service(environmentIn(folder.path()));
    ASSERT_EQ(addRecord(openSampleDatabase(service, "Shop"), {{"Name", "old"}}), 0u);
    service.disconnect(); // its connection goes back to the pool
    ASSERT_EQ(service.deleteDatabase("Shop"), 0u);
    ASSERT_EQ(service.createDatabase("Shop"), 0u);
    Database& shop = open(service, "Shop");
    EXPECT_EQ(recordCount(shop), 0u);
    EXPECT_EQ(shop.fieldCount(), 1u);
}

TEST(Concurrency, ThreadsAddingToOneDatabaseLoseNothing)
{
    DataFolder folder;
    {
        DatabaseService setup(environmentIn(folder.path()));
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
                    DatabaseService request(environmentIn(folder.path(), std::chrono::milliseconds(5000)));
                    DatabaseHandle handle = 0;
                    if (request.openDatabase("Shop", OpenMode::Shared, OpenIntent::MustExist, "", handle) !=
                            0 ||
                        addRecord(*request.database(handle),
                                  {{"Name", std::to_string(t) + "-" + std::to_string(i)}}) != 0)
                        ++failures;
                }
            });
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(failures.load(), 0);
    DatabaseService reader(environmentIn(folder.path()));
    Database& shop = open(reader, "Shop");
    EXPECT_EQ(recordCount(shop), 100u);
    ASSERT_EQ(shop.executeSearch("ORDER BY KIVIDFIELD DESC"), 0u);
    ASSERT_EQ(shop.moveFirst(), 0u);
    EXPECT_EQ(text(shop, "KIVIDFIELD"), "100"); // every ID handed out once
}

} // namespace
} // namespace kiv::db::testing
