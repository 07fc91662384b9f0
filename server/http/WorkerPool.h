// A fixed set of threads that run tasks from a bounded queue. Each worker process has two: the
// render threads (pages and files, where modules and databases may block) and the password
// threads (argon2id checks), so that neither kind of work can wait behind the other.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kiv
{

class WorkerPool
{
public:
    // niceness > 0 lowers the threads' scheduling priority (Linux schedules threads one by one),
    // so that work such as password hashing yields the processor to pages.
    WorkerPool(int threads, size_t maxQueued, int niceness = 0);
    // Runs what is still queued, then joins the threads.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // Queues the task; false when maxQueued tasks are already waiting (the caller refuses).
    bool trySubmit(std::function<void()> task);

private:
    void serve();

    size_t myMaxQueued;
    std::mutex myMutex;
    std::condition_variable myReady;
    std::deque<std::function<void()>> myTasks;
    bool myStopping = false;
    std::vector<std::thread> myThreads;
};

} // namespace kiv
