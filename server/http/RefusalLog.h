// Server log lines for what a flood repeats (refused requests, evicted connections, failed
// handshakes): of each kind, at most one line a second; the lines left out are counted into
// the next one of that kind. Used by one thread (a worker's connection thread).
#pragma once

#include "logging/Log.h"

#include <chrono>
#include <string>
#include <unordered_map>

namespace kiv
{

class RefusalLog
{
public:
    using Clock = std::chrono::steady_clock;

    // True when the line was written (false: counted).
    bool write(LogKind kind, const std::string& key, const std::string& message,
               Clock::time_point now = Clock::now());

private:
    struct Kind
    {
        Clock::time_point lastWritten;
        size_t leftOut = 0;
    };
    std::unordered_map<std::string, Kind> myKinds;
};

} // namespace kiv
