// What the connections of one worker share: the io_context whose one thread runs them all,
// the settings, the site, the two thread pools, the login throttle, the connection count and
// the rate-limited log. Internal to the connection layer.
#pragma once

#include "config/ServerConfig.h"
#include "http/ConnectionTracker.h"
#include "http/Listener.h"
#include "http/LoginThrottle.h"
#include "http/RefusalLog.h"
#include "http/RequestHandler.h"
#include "http/WorkerPool.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace kiv
{

struct ConnectionContext
{
    boost::asio::io_context& io;
    const ServerConfig& config;
    RequestHandler& handler;
    WorkerPool& renderPool;
    WorkerPool& loginPool;
    LoginThrottle& loginThrottle;
    ConnectionTracker& tracker;
    RefusalLog& refusalLog;
    uint16_t tlsPort = 0; // where plain listeners with redirect_to_tls send their clients
    bool stopping = false;
    int refusing = 0; // connections being told 429 or 503 at the door
};

// Takes a connection just accepted on the listener: serves it, or answers 429 or 503 when the
// worker or the client's address is at its limit.
void startConnection(boost::asio::ip::tcp::socket socket, const Listener& listener,
                     ConnectionContext& context);

} // namespace kiv
