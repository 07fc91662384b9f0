// A file descriptor that is closed when its owner goes away.
#pragma once

#include <unistd.h>

namespace kiv
{

class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : myDescriptor(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : myDescriptor(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return myDescriptor; }
    bool isOpen() const { return myDescriptor >= 0; }
    int release()
    {
        int descriptor = myDescriptor;
        myDescriptor = -1;
        return descriptor;
    }
    void reset(int descriptor = -1)
    {
        if (myDescriptor >= 0)
            ::close(myDescriptor);
        myDescriptor = descriptor;
    }

private:
    int myDescriptor = -1;
};

} // namespace kiv
