// Accepting connections, reading requests within limits, writing responses.
#include "http/HttpServer.h"

#include "http/RequestParser.h"
#include "logging/Log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace kiv
{

using Clock = std::chrono::steady_clock;

Listener::Listener(const std::string& address, int port)
{
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, address.c_str(), &socketAddress.sin_addr) != 1)
        throw std::runtime_error("cannot listen on '" + address + "': not an IPv4 address");
    mySocket.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!mySocket.isOpen())
        throw std::runtime_error(std::string("cannot create a socket: ") + std::strerror(errno));
    int on = 1;
    ::setsockopt(mySocket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    std::string where = address + ":" + std::to_string(port);
    if (::bind(mySocket.get(), reinterpret_cast<sockaddr*>(&socketAddress), sizeof socketAddress) != 0)
        throw std::runtime_error("cannot listen on " + where + ": " + std::strerror(errno));
    if (::listen(mySocket.get(), 256) != 0)
        throw std::runtime_error("cannot listen on " + where + ": " + std::strerror(errno));
    socklen_t length = sizeof socketAddress;
    ::getsockname(mySocket.get(), reinterpret_cast<sockaddr*>(&socketAddress), &length);
    myPort = ntohs(socketAddress.sin_port);
}

HttpServer::HttpServer(const Listener& listener, const ServerLimits& limits, int threads,
                       RequestHandler handler)
    : myListener(listener), myLimits(limits), myThreads(threads < 1 ? 1 : threads),
      myHandler(std::move(handler))
{
}

namespace
{

constexpr int kPollSliceMilliseconds = 200;

enum class ReadResult
{
    Data,
    Closed,
    TimedOut,
    Stopped
};

// Waits for bytes until deadline, looking at the stop flag between short polls when
// stopWhenIdle is set (an idle keep-alive connection is closed at once on shutdown).
ReadResult receiveSome(int socket, std::string& buffer, Clock::time_point deadline,
                       const std::atomic<bool>& stopRequested, bool stopWhenIdle)
{
    char chunk[16384];
    while (true)
    {
        if (stopWhenIdle && stopRequested.load())
            return ReadResult::Stopped;
        auto now = Clock::now();
        if (now >= deadline)
            return ReadResult::TimedOut;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
        pollfd poller{socket, POLLIN, 0};
        int ready =
            ::poll(&poller, 1, static_cast<int>(std::min<long long>(left + 1, kPollSliceMilliseconds)));
        if (ready < 0 && errno != EINTR)
            return ReadResult::Closed;
        if (ready <= 0)
            continue;
        ssize_t received = ::recv(socket, chunk, sizeof chunk, 0);
        if (received > 0)
        {
            buffer.append(chunk, static_cast<size_t>(received));
            return ReadResult::Data;
        }
        if (received < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        return ReadResult::Closed;
    }
}

bool sendAll(int socket, std::string_view data, Clock::time_point deadline)
{
    while (!data.empty())
    {
        ssize_t sent = ::send(socket, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent > 0)
        {
            data.remove_prefix(static_cast<size_t>(sent));
            continue;
        }
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return false;
        pollfd poller{socket, POLLOUT, 0};
        ::poll(&poller, 1, static_cast<int>(std::min<long long>(left, kPollSliceMilliseconds)));
    }
    return true;
}

std::string httpDate()
{
    time_t now = ::time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text;
}

// After an error response the client may still be sending; reading a little of it before
// closing keeps the kernel from resetting the connection before the response is read.
void lingerAndClose(int socket)
{
    ::shutdown(socket, SHUT_WR);
    std::string discard;
    std::atomic<bool> never{false};
    auto deadline = Clock::now() + std::chrono::milliseconds(500);
    while (discard.size() < (1u << 20) &&
           receiveSome(socket, discard, deadline, never, false) == ReadResult::Data)
        discard.clear();
}

} // namespace

std::string serializeResponse(const HttpResponse& response, bool headRequest, bool keepAlive)
{
    std::string out = "HTTP/1.1 " + std::to_string(response.status) + " " +
                      std::string(reasonPhrase(response.status)) + "\r\n";
    for (const auto& [name, value] : response.headers)
    {
        // The last guard against response splitting, whoever set the header.
        if (!isSafeHeaderName(name) || !isSafeHeaderValue(value))
        {
            writeServerLog(LogKind::Error, {},
                           "dropped a response header with line breaks or control characters: " + name);
            continue;
        }
        out += name + ": " + value + "\r\n";
    }
    out += "Date: " + httpDate() + "\r\n";
    if (!response.header("Server"))
        out += "Server: kiv-server\r\n";
    // Also on the error responses the connection layer makes before any site sees the request.
    if (!response.header("X-Content-Type-Options"))
        out += "X-Content-Type-Options: nosniff\r\n";
    bool bodyAllowed = response.status >= 200 && response.status != 204 && response.status != 304;
    if (bodyAllowed)
        out += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
    out += keepAlive ? "Connection: keep-alive\r\n" : "Connection: close\r\n";
    out += "\r\n";
    if (bodyAllowed && !headRequest)
        out += response.body;
    return out;
}

void HttpServer::serveConnection(int socket, const std::string& peerAddress, uint16_t peerPort,
                                 const std::atomic<bool>& stopRequested)
{
    FileDescriptor connection(socket);
    std::string buffer;
    auto writeDeadline = [this] { return Clock::now() + std::chrono::seconds(myLimits.bodyTimeoutSeconds); };
    auto refuse = [&](int status, const HttpRequest& request)
    {
        HttpResponse response = makeErrorResponse(status);
        sendAll(socket, serializeResponse(response, false, false), writeDeadline());
        writeAccessLog({peerAddress, "", request.method.empty() ? "-" : request.requestLine(), status,
                        response.body.size(), "", ""});
        lingerAndClose(socket);
    };

    for (int served = 0; served < myLimits.maxRequestsPerConnection; ++served)
    {
        // Waiting for a request: the first one gets the head timeout, later ones the
        // shorter keep-alive timeout. Once its first byte is here, the head must be
        // complete within the head timeout.
        int idleSeconds = served == 0 ? myLimits.headerTimeoutSeconds : myLimits.keepAliveTimeoutSeconds;
        auto deadline = Clock::now() + std::chrono::seconds(idleSeconds);
        bool started = !buffer.empty();
        if (started)
            deadline = Clock::now() + std::chrono::seconds(myLimits.headerTimeoutSeconds);
        HttpRequest request;
        HeadParseResult head;
        while (true)
        {
            head = buffer.empty() ? HeadParseResult{} : parseRequestHead(buffer, myLimits, request);
            if (head.status != HeadStatus::Incomplete)
                break;
            ReadResult result = receiveSome(socket, buffer, deadline, stopRequested, !started);
            if (result == ReadResult::TimedOut && started)
            {
                refuse(408, request);
                return;
            }
            if (result != ReadResult::Data)
                return;
            if (!started)
            {
                started = true;
                deadline = Clock::now() + std::chrono::seconds(myLimits.headerTimeoutSeconds);
            }
        }
        if (head.status == HeadStatus::Invalid)
        {
            refuse(head.errorStatus, request);
            return;
        }
        buffer.erase(0, head.headLength);

        BodyLength body = determineBodyLength(request, myLimits);
        if (body.errorStatus != 0)
        {
            refuse(body.errorStatus, request);
            return;
        }
        if (body.length > buffer.size())
        {
            if (equalsIgnoringCase(request.headerOr("Expect"), "100-continue"))
                sendAll(socket, "HTTP/1.1 100 Continue\r\n\r\n", writeDeadline());
            auto bodyDeadline = Clock::now() + std::chrono::seconds(myLimits.bodyTimeoutSeconds);
            while (buffer.size() < body.length)
            {
                ReadResult result = receiveSome(socket, buffer, bodyDeadline, stopRequested, false);
                if (result == ReadResult::TimedOut)
                {
                    refuse(408, request);
                    return;
                }
                if (result != ReadResult::Data)
                    return;
            }
        }
        request.body = buffer.substr(0, body.length);
        buffer.erase(0, body.length);
        request.remoteAddress = peerAddress;
        request.remotePort = peerPort;
        request.localPort = myListener.port();

        HttpResponse response;
        try
        {
            myHandler(request, response);
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Error, {"", request.path, ""},
                           std::string("request failed with an exception: ") + error.what());
            response = makeErrorResponse(500);
        }
        bool keepAlive = request.wantsKeepAlive() && !response.closeConnection && !stopRequested.load() &&
                         served + 1 < myLimits.maxRequestsPerConnection;
        std::string wire = serializeResponse(response, request.method == "HEAD", keepAlive);
        bool sent = sendAll(socket, wire, writeDeadline());
        writeAccessLog({peerAddress, request.user, request.requestLine(), response.status,
                        request.method == "HEAD" ? 0 : response.body.size(), request.headerOr("Referer"),
                        request.headerOr("User-Agent")});
        if (!sent || !keepAlive)
            return;
    }
}

void HttpServer::run(const std::atomic<bool>& stopRequested)
{
    struct PendingConnection
    {
        int socket;
        std::string address;
        uint16_t port;
    };
    std::mutex mutex;
    std::condition_variable available;
    std::deque<PendingConnection> queue;
    bool accepting = true;
    const size_t maxQueued = static_cast<size_t>(myThreads) * 64;

    std::vector<std::thread> pool;
    for (int i = 0; i < myThreads; ++i)
    {
        pool.emplace_back(
            [&]
            {
                while (true)
                {
                    PendingConnection next;
                    {
                        std::unique_lock<std::mutex> lock(mutex);
                        available.wait(lock, [&] { return !queue.empty() || !accepting; });
                        if (queue.empty())
                            return;
                        next = std::move(queue.front());
                        queue.pop_front();
                    }
                    serveConnection(next.socket, next.address, next.port, stopRequested);
                }
            });
    }

    while (!stopRequested.load())
    {
        pollfd poller{myListener.descriptor(), POLLIN, 0};
        int ready = ::poll(&poller, 1, kPollSliceMilliseconds);
        if (ready <= 0)
            continue;
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        // Every worker process polls the same socket; the ones that lose the race get EAGAIN.
        int socket = ::accept4(myListener.descriptor(), reinterpret_cast<sockaddr*>(&peer), &length,
                               SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (socket < 0)
            continue;
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
        std::unique_lock<std::mutex> lock(mutex);
        if (queue.size() >= maxQueued)
        {
            lock.unlock();
            HttpResponse busy = makeErrorResponse(503, "The server is busy. Try again in a moment.");
            sendAll(socket, serializeResponse(busy, false, false), Clock::now() + std::chrono::seconds(1));
            ::close(socket);
            continue;
        }
        queue.push_back({socket, address, ntohs(peer.sin_port)});
        available.notify_one();
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        accepting = false;
    }
    available.notify_all();
    for (auto& thread : pool)
        thread.join();
}

} // namespace kiv
