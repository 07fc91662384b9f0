// Accepting connections, reading requests within limits, writing responses. A pool thread
// is taken only while a request is read, handled and answered; between requests a
// keep-alive connection waits in the worker's poller, so idle connections cost no thread
// and a worker accepts only while it has a thread to serve with.
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
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>

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

// A connection as it goes between the poller and the pool threads.
struct ServedConnection
{
    FileDescriptor socket;
    std::string peerAddress;
    uint16_t peerPort = 0;
    std::string buffer; // bytes received after the last request
    int served = 0;
    Clock::time_point idleDeadline;
};

bool HttpServer::serveRequests(ServedConnection& connection, const std::atomic<bool>& stopRequested)
{
    int socket = connection.socket.get();
    std::string& buffer = connection.buffer;
    auto writeDeadline = [this] { return Clock::now() + std::chrono::seconds(myLimits.bodyTimeoutSeconds); };
    auto refuse = [&](int status, const HttpRequest& request)
    {
        HttpResponse response = makeErrorResponse(status);
        sendAll(socket, serializeResponse(response, false, false), writeDeadline());
        writeAccessLog({connection.peerAddress, "", request.method.empty() ? "-" : request.requestLine(),
                        status, response.body.size(), "", ""});
        lingerAndClose(socket);
    };

    while (connection.served < myLimits.maxRequestsPerConnection)
    {
        // The poller hands a connection over once bytes (or its end) arrived, so this is not
        // an idle wait that a stop should cut short; the whole head must arrive within the
        // head timeout.
        auto deadline = Clock::now() + std::chrono::seconds(myLimits.headerTimeoutSeconds);
        HttpRequest request;
        HeadParseResult head;
        while (true)
        {
            head = buffer.empty() ? HeadParseResult{} : parseRequestHead(buffer, myLimits, request);
            if (head.status != HeadStatus::Incomplete)
                break;
            bool started = !buffer.empty();
            ReadResult result = receiveSome(socket, buffer, deadline, stopRequested, false);
            if (result == ReadResult::TimedOut && started)
            {
                refuse(408, request);
                return false;
            }
            if (result != ReadResult::Data)
                return false;
        }
        if (head.status == HeadStatus::Invalid)
        {
            refuse(head.errorStatus, request);
            return false;
        }
        buffer.erase(0, head.headLength);

        BodyLength body = determineBodyLength(request, myLimits);
        if (body.errorStatus != 0)
        {
            refuse(body.errorStatus, request);
            return false;
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
                    return false;
                }
                if (result != ReadResult::Data)
                    return false;
            }
        }
        request.body = buffer.substr(0, body.length);
        buffer.erase(0, body.length);
        request.remoteAddress = connection.peerAddress;
        request.remotePort = connection.peerPort;
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
        ++connection.served;
        bool keepAlive = request.wantsKeepAlive() && !response.closeConnection && !stopRequested.load() &&
                         connection.served < myLimits.maxRequestsPerConnection;
        std::string wire = serializeResponse(response, request.method == "HEAD", keepAlive);
        bool sent = sendAll(socket, wire, writeDeadline());
        writeAccessLog({connection.peerAddress, request.user, request.requestLine(), response.status,
                        request.method == "HEAD" ? 0 : response.body.size(), request.headerOr("Referer"),
                        request.headerOr("User-Agent")});
        if (!sent || !keepAlive)
            return false;
        // A pipelined request already here is served at once; otherwise the thread is freed.
        if (buffer.empty())
            return true;
    }
    return false;
}

namespace
{

using ConnectionPointer = std::unique_ptr<ServedConnection>;

// The worker's epoll set: the listening socket (watched only while a thread is free), the
// connections waiting for their next request, and an eventfd that pool threads use to wake
// it. Only the thread that runs HttpServer::run touches it.
class ConnectionPoller
{
public:
    explicit ConnectionPoller(int listener) : myListener(listener)
    {
        myEpoll.reset(::epoll_create1(EPOLL_CLOEXEC));
        myWake.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!myEpoll.isOpen() || !myWake.isOpen())
            throw std::runtime_error(std::string("cannot create a poller: ") + std::strerror(errno));
        control(EPOLL_CTL_ADD, myWake.get(), EPOLLIN);
        control(EPOLL_CTL_ADD, myListener, 0);
    }

    // Safe from any thread.
    void wake()
    {
        uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(myWake.get(), &one, sizeof one);
    }

    void watchListener(bool watch)
    {
        if (watch != myListenerWatched)
            control(EPOLL_CTL_MOD, myListener, watch ? uint32_t(EPOLLIN) : 0u);
        myListenerWatched = watch;
    }

    void hold(ConnectionPointer connection)
    {
        int socket = connection->socket.get();
        if (control(EPOLL_CTL_ADD, socket, EPOLLIN | EPOLLRDHUP))
            myIdle.emplace(socket, std::move(connection));
    }

    size_t heldCount() const { return myIdle.size(); }

    // Waits for events; returns the connections that have bytes (or their end) to read, and
    // tells whether the listener has connections waiting.
    std::vector<ConnectionPointer> wait(int timeoutMilliseconds, bool& listenerReady)
    {
        epoll_event events[64];
        int count = ::epoll_wait(myEpoll.get(), events, 64, timeoutMilliseconds);
        std::vector<ConnectionPointer> ready;
        listenerReady = false;
        for (int i = 0; i < count; ++i)
        {
            int descriptor = events[i].data.fd;
            if (descriptor == myListener)
                listenerReady = true;
            else if (descriptor == myWake.get())
            {
                uint64_t value = 0;
                [[maybe_unused]] ssize_t received = ::read(myWake.get(), &value, sizeof value);
            }
            else if (auto found = myIdle.find(descriptor); found != myIdle.end())
            {
                ::epoll_ctl(myEpoll.get(), EPOLL_CTL_DEL, descriptor, nullptr);
                ready.push_back(std::move(found->second));
                myIdle.erase(found);
            }
        }
        return ready;
    }

    // Closes the connections whose wait for a request has lasted too long.
    void closeExpired(Clock::time_point now)
    {
        for (auto connection = myIdle.begin(); connection != myIdle.end();)
        {
            if (connection->second->idleDeadline > now)
            {
                ++connection;
                continue;
            }
            ::epoll_ctl(myEpoll.get(), EPOLL_CTL_DEL, connection->first, nullptr);
            connection = myIdle.erase(connection);
        }
    }

private:
    bool control(int operation, int descriptor, uint32_t events)
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = descriptor;
        return ::epoll_ctl(myEpoll.get(), operation, descriptor, &event) == 0;
    }

    int myListener;
    FileDescriptor myEpoll;
    FileDescriptor myWake;
    bool myListenerWatched = false;
    std::unordered_map<int, ConnectionPointer> myIdle;
};

// What the poller and the pool threads share.
struct WorkQueue
{
    std::mutex mutex;
    std::condition_variable available;
    std::deque<ConnectionPointer> ready;    // have a request to serve
    std::vector<ConnectionPointer> waiting; // back from a thread, to wait for their next request
    int busyThreads = 0;
    bool stopping = false;
};

ConnectionPointer acceptConnection(int listener, int headerTimeoutSeconds)
{
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    // Every worker process polls the same socket; the ones that lose the race get EAGAIN.
    int socket =
        ::accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0)
        return nullptr;
    auto connection = std::make_unique<ServedConnection>();
    connection->socket.reset(socket);
    char address[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    connection->peerAddress = address;
    connection->peerPort = ntohs(peer.sin_port);
    connection->idleDeadline = Clock::now() + std::chrono::seconds(headerTimeoutSeconds);
    return connection;
}

} // namespace

void HttpServer::run(const std::atomic<bool>& stopRequested)
{
    ConnectionPoller poller(myListener.descriptor());
    WorkQueue work;
    // Beyond this many connections held a worker stops accepting and leaves new ones to the
    // other workers (or to the listen backlog).
    const size_t maxHeld = static_cast<size_t>(myThreads) * 64;

    auto serveFromQueue = [&]
    {
        while (true)
        {
            ConnectionPointer next;
            {
                std::unique_lock<std::mutex> lock(work.mutex);
                work.available.wait(lock, [&] { return !work.ready.empty() || work.stopping; });
                if (work.ready.empty())
                    return;
                next = std::move(work.ready.front());
                work.ready.pop_front();
                ++work.busyThreads;
            }
            bool keep = serveRequests(*next, stopRequested);
            {
                std::lock_guard<std::mutex> lock(work.mutex);
                --work.busyThreads;
                if (keep)
                {
                    next->idleDeadline =
                        Clock::now() + std::chrono::seconds(myLimits.keepAliveTimeoutSeconds);
                    work.waiting.push_back(std::move(next));
                }
            }
            next.reset(); // a connection that is done closes here
            poller.wake();
        }
    };
    std::vector<std::thread> pool;
    for (int i = 0; i < myThreads; ++i)
        pool.emplace_back(serveFromQueue);

    while (!stopRequested.load())
    {
        size_t freeThreads = 0;
        {
            std::lock_guard<std::mutex> lock(work.mutex);
            for (auto& connection : work.waiting)
                poller.hold(std::move(connection));
            work.waiting.clear();
            size_t taken = static_cast<size_t>(work.busyThreads) + work.ready.size();
            freeThreads = taken < static_cast<size_t>(myThreads) ? myThreads - taken : 0;
        }
        poller.watchListener(freeThreads > 0 && poller.heldCount() < maxHeld);
        bool listenerReady = false;
        std::vector<ConnectionPointer> ready = poller.wait(kPollSliceMilliseconds, listenerReady);
        // Accept only as many as there are free threads: the rest stay in the backlog for a
        // worker that has time for them.
        for (size_t accepted = 0; listenerReady && accepted < freeThreads; ++accepted)
        {
            ConnectionPointer connection =
                acceptConnection(myListener.descriptor(), myLimits.headerTimeoutSeconds);
            if (!connection)
                break;
            poller.hold(std::move(connection));
        }
        if (!ready.empty())
        {
            std::lock_guard<std::mutex> lock(work.mutex);
            for (auto& connection : ready)
                work.ready.push_back(std::move(connection));
        }
        for (size_t i = 0; i < ready.size(); ++i)
            work.available.notify_one();
        poller.closeExpired(Clock::now());
    }
    {
        std::lock_guard<std::mutex> lock(work.mutex);
        work.stopping = true;
    }
    work.available.notify_all();
    for (auto& thread : pool)
        thread.join();
    // Idle keep-alive connections are closed with the poller.
}

} // namespace kiv
