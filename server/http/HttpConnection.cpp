// One client connection, plain or TLS, from accept to close. Everything here runs on the
// worker's connection thread except renderOnPool and the password check, which run on pool
// threads while the connection waits; a connection that waits for bytes holds no thread.
//
// Each phase has its own deadline: the TLS handshake and the first request head share the
// header timeout from the moment of connecting; after a response, the wait for the next
// request has the keep-alive timeout, and once its first byte is here, the head has the header
// timeout; the body has the body timeout; every write must make progress within the write
// timeout. The deadline is one timer per connection rather than Beast's tcp_stream timeout,
// which closes the socket: a client that is too slow mid-request gets a 408 first.
#include "http/ConnectionContext.h"

#include "common/MemoryRelease.h"
#include "http/Compression.h"
#include "http/RequestReader.h"
#include "http/ResponseMessage.h"
#include "http/TlsContext.h"
#include "process/Metrics.h"

#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>

#include <cctype>
#include <memory>
#include <optional>
#include <type_traits>

namespace kiv
{

namespace asio = boost::asio;
namespace beast = boost::beast;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using boost::system::error_code;
using PlainStream = tcp::socket;
using TlsStream = asio::ssl::stream<tcp::socket>;

namespace
{

constexpr size_t kHeadReadBytes = 4096;
constexpr size_t kBodyReadBytes = 16384;
// Unused bytes a chunk-size line or the trailer of a chunked body may take.
constexpr size_t kMinUnusedLimit = 65536;
// After a response that closes the connection, what the client still sends is read and
// dropped for a moment, so that the kernel does not reset the connection before the client
// has read the response.
constexpr auto kLingerTime = std::chrono::seconds(1);
constexpr size_t kLingerBytes = 1 << 20;
// Answers at the door (429, 503) in progress at once; beyond this a refused connection is
// just closed.
constexpr int kMaxRefusing = 64;
constexpr auto kRefusalTime = std::chrono::seconds(2);
constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

enum class Phase
{
    Handshake,
    Idle, // waiting for the first byte of a request
    Head,
    Body,
    Waiting, // the request is with a pool thread or a login delay
    Writing,
    Closing,
    Closed
};

// "host" of a Host header, without the port; empty when it is not a plain host name or address.
std::string redirectHost(std::string_view host)
{
    if (host.empty())
        return {};
    std::string_view name = host.substr(0, host[0] == '[' ? host.find(']') + 1 : host.find(':'));
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) &&
            std::string_view(".-[]:").find(c) == std::string_view::npos)
            return {};
    return std::string(name);
}

HttpResponse redirectToTls(const HttpRequest& request, uint16_t tlsPort)
{
    std::string host = redirectHost(trim(request.headerOr("Host")));
    if (host.empty())
        return makeErrorResponse(400, "This address redirects to HTTPS and needs a Host header.");
    std::string location = "https://" + host + (tlsPort == 443 ? "" : ":" + std::to_string(tlsPort)) +
                           (request.target.rfind('/', 0) == 0 ? request.target : "/");
    HttpResponse response = makeErrorResponse(301);
    response.setHeader("Location", location);
    return response;
}

template <class Stream>
class Connection : public ConnectionTracker::Member, public std::enable_shared_from_this<Connection<Stream>>
{
    static constexpr bool kTls = std::is_same_v<Stream, TlsStream>;

public:
    Connection(tcp::socket socket, const Listener& listener, ConnectionContext& context, std::string address,
               uint16_t port)
        : myStream(makeStream(std::move(socket), listener)), myTimer(context.io), myListener(listener),
          my(context), myAddress(std::move(address)), myPort(port), myReader(context.config.limits)
    {
    }

    ~Connection() override
    {
        if (myRefused)
            --my.refusing;
    }

    void start()
    {
        arm(std::chrono::seconds(limits().headerTimeoutSeconds));
        if constexpr (kTls)
            handshake();
        else
            waitForRequest();
    }

    // Answers 429 or 503 without reading a request, then closes.
    void refuseAtTheDoor(int status, std::string_view reason)
    {
        if (my.refusing >= kMaxRefusing)
            return; // the socket closes with this object
        ++my.refusing;
        myRefused = true;
        myRefusal = makeErrorResponse(status, reason);
        setRetryAfter(*myRefusal, 1);
        arm(kRefusalTime);
        if constexpr (kTls)
            handshake();
        else
            answerAndClose(std::move(*myRefusal));
    }

    void evict() override
    {
        my.refusalLog.write(LogKind::Warning, "evict",
                            "closed an idle connection from " + myAddress + " to make room for a new one (" +
                                std::to_string(limits().maxConnections) + " connections)");
        close();
    }

    void stopServing() override
    {
        // Only a connection idle between requests closes now (its client must expect that of
        // keep-alive). A request being read or answered is finished first, and so is the first
        // request of a connection just accepted, whose client has sent it or is about to:
        // onWritten then closes, seeing that the worker stops. The deadlines bound the wait.
        if (myPhase == Phase::Idle && myServed > 0)
            close();
    }

private:
    static Stream makeStream(tcp::socket socket, const Listener& listener)
    {
        if constexpr (kTls)
            return Stream(std::move(socket), listener.tls()->context());
        else
            return socket;
    }

    tcp::socket& socket()
    {
        if constexpr (kTls)
            return myStream.next_layer();
        else
            return myStream;
    }

    const ServerLimits& limits() const { return my.config.limits; }

    // Deadlines --------------------------------------------------------------------------

    void arm(Clock::duration duration)
    {
        myTimedOut = false;
        unsigned generation = ++myDeadline;
        myTimer.expires_after(duration);
        myTimer.async_wait(
            [self = this->shared_from_this(), generation](error_code error)
            {
                if (error || generation != self->myDeadline || self->myPhase == Phase::Closed)
                    return;
                // The pending operation ends with operation_aborted and onTimeout decides.
                self->myTimedOut = true;
                error_code ignored;
                self->socket().cancel(ignored);
            });
    }

    void disarm()
    {
        ++myDeadline;
        myTimer.cancel();
    }

    void onTimeout()
    {
        switch (myPhase)
        {
        case Phase::Head:
        case Phase::Body:
            if (myReader.started())
            {
                refuseRequest(408, myPhase == Phase::Body ? "the body did not arrive in time"
                                                          : "the request head did not arrive in time");
                return;
            }
            break;
        case Phase::Handshake:
            my.refusalLog.write(LogKind::Warning, "handshake-time",
                                "closed a connection from " + myAddress + " on " + myListener.url() +
                                    ": the TLS handshake did not finish in time");
            break;
        default:
            break;
        }
        close();
    }

    // Reading ----------------------------------------------------------------------------

    void handshake()
    {
        myPhase = Phase::Handshake;
        myStream.async_handshake(asio::ssl::stream_base::server,
                                 [self = this->shared_from_this()](error_code error)
                                 { self->onHandshake(error); });
    }

    void onHandshake(error_code error)
    {
        if (error)
        {
            if (myTimedOut)
                return onTimeout();
            // Plain HTTP sent to an HTTPS port ends here too ("http request", "wrong version").
            if (myPhase != Phase::Closed)
                my.refusalLog.write(LogKind::Warning, "handshake",
                                    "closed a connection from " + myAddress + " on " + myListener.url() +
                                        ": the TLS handshake failed (" + error.message() + ")");
            return close();
        }
        if (myRefusal)
            return answerAndClose(std::move(*myRefusal));
        waitForRequest();
    }

    void waitForRequest()
    {
        if (myBuffer.size() > 0)
        {
            // A pipelined request is already here.
            myPhase = Phase::Head;
            if (myServed > 0)
                arm(std::chrono::seconds(limits().headerTimeoutSeconds));
            return consume();
        }
        myPhase = Phase::Idle;
        my.tracker.setIdle(*this, true, Clock::now());
        if (myServed > 0)
            arm(std::chrono::seconds(limits().keepAliveTimeoutSeconds));
        // An idle connection keeps no buffer: a plain socket is watched for readiness first.
        myBuffer.shrink_to_fit();
        if constexpr (kTls)
            readSome();
        else
            socket().async_wait(tcp::socket::wait_read,
                                [self = this->shared_from_this()](error_code error)
                                {
                                    if (error)
                                        return self->onReadError();
                                    self->readSome();
                                });
    }

    size_t unusedLimit() const { return std::max(limits().maxHeaderBytes + 1, kMinUnusedLimit); }

    void readSome()
    {
        size_t room = unusedLimit() - myBuffer.size();
        size_t chunk = std::min(room, myPhase == Phase::Body ? kBodyReadBytes : kHeadReadBytes);
        myStream.async_read_some(myBuffer.prepare(chunk),
                                 [self = this->shared_from_this()](error_code error, size_t received)
                                 {
                                     if (error)
                                         return self->onReadError();
                                     self->myBuffer.commit(received);
                                     self->onReceived();
                                 });
    }

    void onReadError()
    {
        if (myTimedOut)
            return onTimeout();
        // The client went away (or the worker closed the connection): nothing to answer.
        close();
    }

    void onReceived()
    {
        if (myPhase == Phase::Idle)
        {
            myPhase = Phase::Head;
            my.tracker.setIdle(*this, false, Clock::now());
            if (myServed > 0)
                arm(std::chrono::seconds(limits().headerTimeoutSeconds));
        }
        consume();
    }

    // Hands the unused bytes to the reader until it needs more or has a whole request.
    void consume()
    {
        while (true)
        {
            auto bytes = myBuffer.data();
            size_t used = myReader.feed({static_cast<const char*>(bytes.data()), bytes.size()});
            myBuffer.consume(used);
            switch (myReader.state())
            {
            case ReadState::NeedMore:
                if (myBuffer.size() >= unusedLimit())
                    return refuseRequest(400, "a chunk line or trailer over " +
                                                  std::to_string(unusedLimit()) + " bytes");
                return readSome();
            case ReadState::HeadReady:
                myPhase = Phase::Body;
                arm(std::chrono::seconds(limits().bodyTimeoutSeconds));
                if (myReader.expectsContinue())
                    return sendContinue();
                continue;
            case ReadState::Complete:
                return dispatch();
            case ReadState::Refused:
                return refuseRequest(myReader.refusalStatus(), myReader.refusalReason());
            }
        }
    }

    void sendContinue()
    {
        asio::async_write(myStream, asio::buffer(kContinue.data(), kContinue.size()),
                          [self = this->shared_from_this()](error_code error, size_t)
                          {
                              if (error)
                                  return self->onReadError();
                              self->consume();
                          });
    }

    // Handling ---------------------------------------------------------------------------

    void dispatch()
    {
        disarm();
        myRequestStart = Clock::now();
        myPhase = Phase::Waiting;
        ++myServed;
        HttpRequest& request = myReader.request();
        request.remoteAddress = myAddress;
        request.remotePort = myPort;
        request.localPort = myListener.port();
        request.secure = kTls;
        myHeadRequest = request.method == "HEAD";
        myKeepAlive = request.wantsKeepAlive() && myServed < limits().maxRequestsPerConnection &&
                      limits().keepAliveTimeoutSeconds > 0 && !my.stopping;
        if (myListener.config().redirectToTls)
            return answer(redirectToTls(request, my.tlsPort));
        std::optional<LoginAttempt> attempt;
        try
        {
            attempt = my.handler.loginAttempt(request);
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Error, {"", request.path, ""},
                           std::string("login check failed: ") + error.what());
            return answer(makeErrorResponse(500));
        }
        if (attempt)
            return checkLogin(std::move(*attempt));
        render();
    }

    std::string addressKey() const { return "address " + myAddress; }

    // Blocked addresses and user names are refused without a password check; a password
    // this worker has accepted before passes a blocked user name, so that an attacker who
    // hammers a name does not lock out its owner.
    void checkLogin(LoginAttempt attempt)
    {
        auto now = Clock::now();
        if (int wait = my.loginThrottle.blockedSeconds(addressKey(), now))
            return refuseLogin(wait);
        if (attempt.isRemembered && attempt.isRemembered())
            return acceptLogin(attempt, now);
        if (int wait = my.loginThrottle.blockedSeconds("user " + attempt.throttleKey, now))
            return refuseLogin(wait);
        auto& io = my.io;
        bool queued = my.loginPool.trySubmit(
            [self = this->shared_from_this(), attempt, work = asio::make_work_guard(io), &io]() mutable
            {
                bool accepted = false;
                try
                {
                    accepted = attempt.verify();
                }
                catch (const std::exception& error)
                {
                    writeServerLog(LogKind::Error, {attempt.region, "", ""},
                                   std::string("password check failed: ") + error.what());
                }
                // The connection is only ever released on its own thread.
                asio::post(io, [self = std::move(self), attempt = std::move(attempt), accepted,
                                work = std::move(work)]() { self->onLoginChecked(attempt, accepted); });
            });
        if (!queued)
            refuseBusy("login-queue", "password checks");
    }

    void onLoginChecked(const LoginAttempt& attempt, bool accepted)
    {
        if (myPhase == Phase::Closed)
            return;
        auto now = Clock::now();
        if (accepted)
            return acceptLogin(attempt, now);
        LoginThrottle::Failure byAddress = my.loginThrottle.recordFailure(addressKey(), now);
        LoginThrottle::Failure byUser = my.loginThrottle.recordFailure("user " + attempt.throttleKey, now);
        LogContext where{attempt.region, myReader.request().path, ""};
        std::string blockTime = std::to_string(limits().loginBlockSeconds) + " s";
        if (byAddress.firstOfBurst)
            writeServerLog(LogKind::Warning, where,
                           "failed login for user '" + attempt.user + "' from " + myAddress);
        if (byAddress.blockedNow)
            writeServerLog(LogKind::Warning, where,
                           std::to_string(limits().maxLoginFailures) + " failed logins from " + myAddress +
                               " (last as '" + attempt.user + "'): its logins are refused for " + blockTime);
        if (byUser.blockedNow)
            writeServerLog(LogKind::Warning, where,
                           std::to_string(limits().maxLoginFailures) + " failed logins as '" + attempt.user +
                               "': logins as this user are refused for " + blockTime);
        auto delay = std::max(byAddress.delay, byUser.delay);
        if (delay.count() == 0)
            return render(); // the site answers with the login prompt
        metrics::countThrottledLogin(false);
        unsigned generation = ++myDeadline;
        myTimer.expires_after(delay);
        myTimer.async_wait(
            [self = this->shared_from_this(), generation](error_code error)
            {
                if (!error && generation == self->myDeadline && self->myPhase == Phase::Waiting)
                    self->render();
            });
    }

    void acceptLogin(const LoginAttempt& attempt, Clock::time_point now)
    {
        my.loginThrottle.recordSuccess(addressKey(), now);
        my.loginThrottle.recordSuccess("user " + attempt.throttleKey, now);
        myReader.request().user = attempt.user;
        render();
    }

    void refuseLogin(int seconds)
    {
        metrics::countThrottledLogin(true);
        HttpResponse response = makeErrorResponse(429, "Too many failed logins. Try again later.");
        setRetryAfter(response, seconds);
        answer(std::move(response));
    }

    void refuseBusy(const std::string& key, const std::string& what)
    {
        my.refusalLog.write(LogKind::Warning, key,
                            "answered 503 to " + myAddress + ": the queue of " + what + " is full");
        HttpResponse response = makeErrorResponse(503, "The server is busy. Try again in a moment.");
        setRetryAfter(response, 1);
        myKeepAlive = false;
        answer(std::move(response));
    }

    void render()
    {
        myPhase = Phase::Waiting;
        auto& io = my.io;
        bool queued = my.renderPool.trySubmit(
            [self = this->shared_from_this(), work = asio::make_work_guard(io), &io]() mutable
            {
                self->renderOnPool();
                asio::post(io, [self = std::move(self), work = std::move(work)]() { self->writeResponse(); });
            });
        if (!queued)
            refuseBusy("render-queue", std::to_string(limits().maxQueuedRequests) + " requests");
    }

    // On a render thread; the connection thread does not touch the request meanwhile.
    void renderOnPool()
    {
        HttpRequest& request = myReader.request();
        HttpResponse response;
        try
        {
            my.handler.handle(request, response);
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Error, {"", request.path, ""},
                           std::string("request failed with an exception: ") + error.what());
            response = makeErrorResponse(500);
        }
        prepareResponse(std::move(response));
    }

    void prepareResponse(HttpResponse&& response)
    {
        const HttpRequest& request = myReader.request();
        myKeepAlive = myKeepAlive && !response.closeConnection;
        if (my.config.gzip)
            compressForClient(request, response);
        if (kTls && my.config.hstsMaxAgeSeconds > 0)
            response.setHeader("Strict-Transport-Security",
                               "max-age=" + std::to_string(my.config.hstsMaxAgeSeconds));
        auto now = Clock::now();
        metrics::countRequest(request.region, response.status,
                              myRequestStart == Clock::time_point() ? Clock::duration() : now - myRequestStart);
        myRequestStart = Clock::time_point();
        ResponseFraming framing{myHeadRequest, myKeepAlive};
        myAccess = {myAddress,
                    request.user,
                    request.method.empty() ? "-" : request.requestLine(),
                    response.status,
                    bodyBytesOf(response, framing),
                    request.headerOr("Referer"),
                    request.headerOr("User-Agent")};
        myResponse.emplace(makeResponseMessage(std::move(response), framing));
    }

    // Writing ----------------------------------------------------------------------------

    // A response made on the connection thread (refusals, redirects).
    void answer(HttpResponse&& response)
    {
        prepareResponse(std::move(response));
        writeResponse();
    }

    void answerAndClose(HttpResponse&& response)
    {
        myKeepAlive = false;
        answer(std::move(response));
    }

    void refuseRequest(int status, const std::string& reason)
    {
        my.refusalLog.write(LogKind::Warning, std::to_string(status),
                            "refused a request from " + myAddress + " with " + std::to_string(status) + ": " +
                                reason);
        myHeadRequest = false;
        answerAndClose(makeErrorResponse(status));
    }

    void writeResponse()
    {
        if (myPhase == Phase::Closed)
            return;
        myPhase = Phase::Writing;
        writeSome();
    }

    void writeSome()
    {
        if (myResponse->is_done())
            return onWritten();
        error_code error;
        auto buffers = myResponse->prepare(error);
        if (error)
        {
            writeServerLog(LogKind::Error, {},
                           "cannot send a response to " + myAddress + ": " + error.message());
            logAccess();
            return close();
        }
        arm(std::chrono::seconds(limits().writeTimeoutSeconds));
        myStream.async_write_some(buffers,
                                  [self = this->shared_from_this()](error_code error, size_t written)
                                  {
                                      if (error)
                                      {
                                          self->logAccess();
                                          return self->close();
                                      }
                                      self->myResponse->consume(written);
                                      self->writeSome();
                                  });
    }

    void logAccess() { writeAccessLog(myAccess); }

    void onWritten()
    {
        disarm();
        logAccess();
        myResponse.reset();
        if (myAccess.bytesSent >= kLargeResponseBytes)
            giveBackFreeMemory(); // what made the page is free now; the body just was

        if (!myKeepAlive || my.stopping)
            return closeGracefully();
        myReader.reset();
        waitForRequest();
    }

    // Closing ----------------------------------------------------------------------------

    void closeGracefully()
    {
        myPhase = Phase::Closing;
        arm(kLingerTime);
        if constexpr (kTls)
            myStream.async_shutdown([self = this->shared_from_this()](error_code) { self->close(); });
        else
        {
            error_code ignored;
            socket().shutdown(tcp::socket::shutdown_send, ignored);
            drain();
        }
    }

    void drain()
    {
        myBuffer.consume(myBuffer.size());
        if (myDrained >= kLingerBytes)
            return close();
        myStream.async_read_some(myBuffer.prepare(kBodyReadBytes),
                                 [self = this->shared_from_this()](error_code error, size_t received)
                                 {
                                     if (error)
                                         return self->close();
                                     self->myDrained += received;
                                     self->myBuffer.commit(received);
                                     self->drain();
                                 });
    }

    void close()
    {
        if (myPhase == Phase::Closed)
            return;
        myPhase = Phase::Closed;
        disarm();
        error_code ignored;
        socket().close(ignored);
        my.tracker.leave(*this);
    }

    Stream myStream;
    asio::steady_timer myTimer;
    const Listener& myListener;
    ConnectionContext& my;
    std::string myAddress;
    uint16_t myPort;
    beast::flat_buffer myBuffer;
    RequestReader myReader;
    Phase myPhase = Phase::Handshake;
    unsigned myDeadline = 0; // the generation of the armed timer; older expiries are ignored
    bool myTimedOut = false;
    int myServed = 0;
    bool myKeepAlive = false;
    bool myHeadRequest = false;
    bool myRefused = false;
    std::optional<HttpResponse> myRefusal; // for a TLS refusal, until the handshake is done
    std::optional<beast::http::message_generator> myResponse;
    AccessRecord myAccess;
    Clock::time_point myRequestStart; // of the request being answered, for the metrics
    size_t myDrained = 0;
};

template <class Stream>
void admit(tcp::socket socket, const Listener& listener, ConnectionContext& context, std::string address,
           uint16_t port)
{
    auto connection =
        std::make_shared<Connection<Stream>>(std::move(socket), listener, context, address, port);
    auto admission = context.tracker.admit(*connection, address, Clock::now());
    if (admission == ConnectionTracker::Admission::Admitted)
        return connection->start();
    const ServerLimits& limits = context.config.limits;
    bool addressFull = admission == ConnectionTracker::Admission::AddressFull;
    std::string why =
        addressFull
            ? "it has " + std::to_string(limits.maxConnectionsPerAddress) + " connections to this worker"
            : "the worker has " + std::to_string(limits.maxConnections) + " connections and none is idle";
    int status = addressFull ? 429 : 503;
    context.refusalLog.write(LogKind::Warning, addressFull ? "address-full" : "worker-full",
                             "answered " + std::to_string(status) + " to " + address + ": " + why);
    connection->refuseAtTheDoor(status, addressFull ? "Too many connections from your address."
                                                    : "The server is busy. Try again in a moment.");
}

} // namespace

void startConnection(tcp::socket socket, const Listener& listener, ConnectionContext& context)
{
    error_code error;
    tcp::endpoint remote = socket.remote_endpoint(error);
    if (error)
        return; // gone before it was taken
    // Responses go out whole; waiting to fill a segment only adds latency.
    socket.set_option(tcp::no_delay(true), error);
    if (listener.tls())
        admit<TlsStream>(std::move(socket), listener, context, remote.address().to_string(), remote.port());
    else
        admit<PlainStream>(std::move(socket), listener, context, remote.address().to_string(), remote.port());
}

} // namespace kiv
