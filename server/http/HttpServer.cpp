// Accepting on the listeners, and the worker's stop.
#include "http/HttpServer.h"

#include "http/ConnectionContext.h"

#include <boost/asio/steady_timer.hpp>

#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <unistd.h>

namespace kiv
{

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace
{

// Every worker accepts on the same listening socket (a copy of the master's descriptor); the
// one that wins a connection serves it.
class Acceptor
{
public:
    Acceptor(ConnectionContext& context, const Listener& listener)
        : my(context), myListener(listener), myAcceptor(context.io), myRetry(context.io)
    {
        int descriptor = ::dup(listener.descriptor());
        if (descriptor < 0)
            throw std::runtime_error(std::string("cannot use the listening socket: ") + std::strerror(errno));
        myAcceptor.assign(tcp::v4(), descriptor);
        accept();
    }

    void stop()
    {
        boost::system::error_code ignored;
        myAcceptor.close(ignored);
        myRetry.cancel();
    }

private:
    void accept()
    {
        myAcceptor.async_accept([this](boost::system::error_code error, tcp::socket socket)
                                { onAccept(error, std::move(socket)); });
    }

    void onAccept(boost::system::error_code error, tcp::socket socket)
    {
        if (error == asio::error::operation_aborted || (error && my.stopping))
            return;
        if (error)
        {
            // Out of descriptors, most likely: connections that close meanwhile make room.
            my.refusalLog.write(LogKind::Error, "accept",
                                "cannot accept a connection on " + myListener.url() + ": " + error.message());
            myRetry.expires_after(std::chrono::milliseconds(100));
            myRetry.async_wait(
                [this](boost::system::error_code waited)
                {
                    if (!waited)
                        accept();
                });
            return;
        }
        // A connection the kernel handed over just as the worker began to stop is served
        // all the same: its client has sent its request, and dropping it would reset it.
        startConnection(std::move(socket), myListener, my);
        if (!my.stopping)
            accept();
    }

    ConnectionContext& my;
    const Listener& myListener;
    tcp::acceptor myAcceptor;
    asio::steady_timer myRetry;
};

LoginThrottle::Settings throttleSettings(const ServerLimits& limits)
{
    LoginThrottle::Settings settings;
    settings.maxFailures = limits.maxLoginFailures;
    settings.blockTime = std::chrono::seconds(limits.loginBlockSeconds);
    return settings;
}

} // namespace

HttpServer::HttpServer(const std::vector<Listener>& listeners, const ServerConfig& config,
                       RequestHandler& handler)
    : myListeners(listeners), myConfig(config), myHandler(handler)
{
}

void HttpServer::run(const std::atomic<bool>& stopRequested)
{
    const ServerLimits& limits = myConfig.limits;
    asio::io_context io(1);
    // Declared after the io_context, so destroyed before it: their threads are joined while
    // the handlers they post can still be dropped safely.
    WorkerPool renderPool(myConfig.threadsPerWorker, static_cast<size_t>(limits.maxQueuedRequests));
    // Password hashing is deliberately expensive; under a flood of logins it must not take the
    // processor from the threads that serve pages.
    constexpr int kPasswordNiceness = 5;
    WorkerPool loginPool(limits.loginThreads, static_cast<size_t>(limits.maxQueuedLogins), kPasswordNiceness);
    LoginThrottle throttle(throttleSettings(limits));
    ConnectionTracker tracker(static_cast<size_t>(limits.maxConnections),
                              static_cast<size_t>(limits.maxConnectionsPerAddress));
    RefusalLog refusalLog;
    ConnectionContext context{io, myConfig, myHandler, renderPool, loginPool, throttle, tracker, refusalLog};
    for (const auto& listener : myListeners)
        if (listener.tls() && context.tlsPort == 0)
            context.tlsPort = listener.port();

    std::vector<std::unique_ptr<Acceptor>> acceptors;
    for (const auto& listener : myListeners)
        acceptors.push_back(std::make_unique<Acceptor>(context, listener));

    // The stop flag is set by a signal handler; a short timer looks at it.
    asio::steady_timer stopWatch(io);
    std::function<void()> watch = [&]
    {
        stopWatch.expires_after(std::chrono::milliseconds(100));
        stopWatch.async_wait(
            [&](boost::system::error_code error)
            {
                if (error)
                    return;
                if (!stopRequested.load())
                    return watch();
                context.stopping = true;
                for (auto& acceptor : acceptors)
                    acceptor->stop();
                for (ConnectionTracker::Member* member : tracker.members())
                    member->stopServing();
            });
    };
    watch();
    // A handler that throws (out of memory, most likely) takes down its own connection, not
    // the worker's others.
    while (true)
    {
        try
        {
            io.run();
            return;
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Error, {}, std::string("a connection failed: ") + error.what());
        }
    }
}

} // namespace kiv
