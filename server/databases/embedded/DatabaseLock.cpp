// flock()-based open-mode locks; see DatabaseLock.h for why flock and not fcntl locks (fcntl
// locks are per process and would not separate two requests of the same worker).
#include "embedded/DatabaseLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace kiv::db
{

std::optional<DatabaseLock> DatabaseLock::acquire(const std::filesystem::path& lockFile, Mode mode,
                                                  std::chrono::milliseconds wait)
{
    std::error_code ignored;
    std::filesystem::create_directories(lockFile.parent_path(), ignored);
    const int descriptor = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0)
        return std::nullopt;
    DatabaseLock lock(descriptor, mode);
    if (!lock.take(mode, wait))
        return std::nullopt;
    return lock;
}

bool DatabaseLock::take(Mode mode, std::chrono::milliseconds wait)
{
    const int operation = (mode == Mode::Exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    const auto deadline = std::chrono::steady_clock::now() + wait;
    // Polling rather than a blocking flock() keeps the wait bounded without signals.
    while (::flock(myDescriptor, operation) != 0)
    {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    myMode = mode;
    return true;
}

bool DatabaseLock::makeExclusive(std::chrono::milliseconds wait)
{
    if (myMode == Mode::Exclusive)
        return true;
    if (take(Mode::Exclusive, wait))
        return true;
    // A conversion that failed may have let go of the shared lock too: take it back.
    take(Mode::Shared, wait);
    return false;
}

DatabaseLock::DatabaseLock(DatabaseLock&& other) noexcept
    : myDescriptor(other.myDescriptor), myMode(other.myMode)
{
    other.myDescriptor = -1;
}

DatabaseLock& DatabaseLock::operator=(DatabaseLock&& other) noexcept
{
    if (this != &other)
    {
        if (myDescriptor >= 0)
            ::close(myDescriptor);
        myDescriptor = other.myDescriptor;
        myMode = other.myMode;
        other.myDescriptor = -1;
    }
    return *this;
}

DatabaseLock::~DatabaseLock()
{
    if (myDescriptor >= 0)
        ::close(myDescriptor); // closing the last descriptor of the description releases the lock
}

} // namespace kiv::db
