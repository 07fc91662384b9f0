// The HTTP/1.1 connection layer: a listening socket that is bound once (before the worker
// processes are forked) and a server that accepts on it, reads each request within the
// size and time limits, hands it to the site, and writes the response. Requests are
// served concurrently by a small pool of threads; between requests a keep-alive connection
// waits in an epoll set, not in a thread.
#pragma once

#include "common/FileDescriptor.h"
#include "config/ServerConfig.h"
#include "http/HttpMessage.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace kiv
{

class Listener
{
public:
    // Binds and listens; throws std::runtime_error naming the address on failure. Port 0
    // picks a free port (see port()).
    Listener(const std::string& address, int port);
    int descriptor() const { return mySocket.get(); }
    uint16_t port() const { return myPort; }

private:
    FileDescriptor mySocket;
    uint16_t myPort = 0;
};

struct ServedConnection;

using RequestHandler = std::function<void(HttpRequest&, HttpResponse&)>;

class HttpServer
{
public:
    HttpServer(const Listener& listener, const ServerLimits& limits, int threads, RequestHandler handler);

    // Serves until stopRequested becomes true, then stops accepting, lets the requests in
    // flight finish, closes idle connections and returns.
    void run(const std::atomic<bool>& stopRequested);

private:
    // Serves the requests that have arrived on the connection; true when it stays open for
    // the next one.
    bool serveRequests(ServedConnection& connection, const std::atomic<bool>& stopRequested);

    const Listener& myListener;
    ServerLimits myLimits;
    int myThreads;
    RequestHandler myHandler;
};

// The bytes of a response as they go on the wire (without the body for HEAD requests).
std::string serializeResponse(const HttpResponse& response, bool headRequest, bool keepAlive);

} // namespace kiv
