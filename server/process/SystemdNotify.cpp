// sd_notify through libsystemd.
#include "process/SystemdNotify.h"

#include <ctime>
#include <string>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace kiv
{

namespace
{

void notify(const std::string& state)
{
    // The answer only says whether systemd listens; the server runs the same either way.
    ::sd_notify(0, state.c_str());
}

std::string statusLine(std::string_view status)
{
    std::string line = "STATUS=";
    for (char c : status)
        line += c == '\n' ? ' ' : c;
    return line;
}

} // namespace

void notifyReady(std::string_view status)
{
    notify("READY=1\nMAINPID=" + std::to_string(::getpid()) + "\n" + statusLine(status));
}

void notifyReloading()
{
    // systemd 253 and later want the time of the reload with it (Type=notify-reload); earlier
    // versions ignore it.
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    unsigned long long micros = static_cast<unsigned long long>(now.tv_sec) * 1000000ull +
                                static_cast<unsigned long long>(now.tv_nsec / 1000);
    notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(micros) + "\n" +
           statusLine("reloading the configuration"));
}

void notifyStopping()
{
    notify("STOPPING=1\n" + statusLine("stopping: the workers finish their requests"));
}

void notifyStatus(std::string_view status)
{
    notify(statusLine(status));
}

} // namespace kiv
