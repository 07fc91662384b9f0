// Rate-limited log lines.
#include "http/RefusalLog.h"

namespace kiv
{

bool RefusalLog::write(LogKind kind, const std::string& key, const std::string& message,
                       Clock::time_point now)
{
    auto [entry, added] = myKinds.try_emplace(key);
    Kind& state = entry->second;
    if (!added && now - state.lastWritten < std::chrono::seconds(1))
    {
        ++state.leftOut;
        return false;
    }
    std::string line = message;
    if (state.leftOut > 0)
        line += " (and " + std::to_string(state.leftOut) + " more like it since the last such line)";
    writeServerLog(kind, {}, line);
    state.lastWritten = now;
    state.leftOut = 0;
    return true;
}

} // namespace kiv
