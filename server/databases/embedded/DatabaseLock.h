// Open-mode locking of one database across threads and worker processes. Each open takes an
// flock() on the database's lock file through its own file descriptor: shared for open mode
// 2, exclusive for mode 3. flock() locks belong to the open file description, so two opens in
// one process contend exactly like opens in two processes, and the kernel drops the lock of a
// killed worker.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

namespace kiv::db
{

class DatabaseLock
{
public:
    enum class Mode
    {
        Shared,
        Exclusive
    };

    // Waits up to `wait` for the lock; nullopt when someone else still holds a conflicting one
    // or the lock file cannot be opened.
    static std::optional<DatabaseLock> acquire(const std::filesystem::path& lockFile, Mode mode,
                                               std::chrono::milliseconds wait);

    DatabaseLock(DatabaseLock&& other) noexcept;
    DatabaseLock& operator=(DatabaseLock&& other) noexcept;
    DatabaseLock(const DatabaseLock&) = delete;
    DatabaseLock& operator=(const DatabaseLock&) = delete;
    ~DatabaseLock();

    Mode mode() const { return myMode; }
    // Turns a shared lock into an exclusive one, waiting up to `wait` for the other opens to
    // end; false when they did not (the lock is then shared again).
    bool makeExclusive(std::chrono::milliseconds wait);

private:
    DatabaseLock(int descriptor, Mode mode) : myDescriptor(descriptor), myMode(mode) {}
    bool take(Mode mode, std::chrono::milliseconds wait);
    int myDescriptor = -1;
    Mode myMode = Mode::Shared;
};

} // namespace kiv::db
