// The connection layer of one worker process. One Boost.Asio io_context, run by one thread,
// owns every connection of every listener: it accepts, reads requests (Boost.Beast parses
// them, within the limits), and writes responses, all asynchronously, so a connection that
// waits for bytes costs a little memory and no thread. A complete request goes to a bounded
// pool of render threads, where the site may block on modules and databases; logins are
// checked on a separate small pool first.
#pragma once

#include "config/ServerConfig.h"
#include "http/Listener.h"
#include "http/RequestHandler.h"

#include <atomic>
#include <vector>

namespace kiv
{

class HttpServer
{
public:
    HttpServer(const std::vector<Listener>& listeners, const ServerConfig& config, RequestHandler& handler);

    // Serves until stopRequested becomes true, then stops accepting, closes the connections
    // that wait for a request, lets the requests in flight finish, and returns.
    void run(const std::atomic<bool>& stopRequested);

private:
    const std::vector<Listener>& myListeners;
    const ServerConfig& myConfig;
    RequestHandler& myHandler;
};

} // namespace kiv
