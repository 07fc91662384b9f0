// Tells systemd (Type=notify) what the master is doing: READY=1 once the workers serve,
// RELOADING=1 then READY=1 around a reload, STOPPING=1 at a stop, with a STATUS= line for
// `systemctl status`. Without NOTIFY_SOCKET (not started by systemd) it does nothing.
#pragma once

#include <string_view>

namespace kiv
{

void notifyReady(std::string_view status);
void notifyReloading();
void notifyStopping();
void notifyStatus(std::string_view status);

} // namespace kiv
