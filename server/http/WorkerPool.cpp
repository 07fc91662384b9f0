// Threads with a bounded queue.
#include "http/WorkerPool.h"

#include <sys/resource.h>
#include <unistd.h>

namespace kiv
{

WorkerPool::WorkerPool(int threads, size_t maxQueued, int niceness) : myMaxQueued(maxQueued)
{
    for (int i = 0; i < (threads < 1 ? 1 : threads); ++i)
        myThreads.emplace_back(
            [this, niceness]
            {
                // Best effort: a thread that keeps the process's priority still works.
                if (niceness > 0) [[maybe_unused]]
                    int ignored = ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), niceness);
                serve();
            });
}

WorkerPool::~WorkerPool()
{
    {
        std::lock_guard<std::mutex> lock(myMutex);
        myStopping = true;
    }
    myReady.notify_all();
    for (auto& thread : myThreads)
        thread.join();
}

bool WorkerPool::trySubmit(std::function<void()> task)
{
    {
        std::lock_guard<std::mutex> lock(myMutex);
        if (myTasks.size() >= myMaxQueued || myStopping)
            return false;
        myTasks.push_back(std::move(task));
    }
    myReady.notify_one();
    return true;
}

void WorkerPool::serve()
{
    while (true)
    {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(myMutex);
            myReady.wait(lock, [this] { return !myTasks.empty() || myStopping; });
            if (myTasks.empty())
                return;
            task = std::move(myTasks.front());
            myTasks.pop_front();
        }
        task();
    }
}

} // namespace kiv
