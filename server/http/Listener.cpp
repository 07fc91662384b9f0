// Listening sockets.
#include "http/Listener.h"

#include "http/TlsContext.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>

namespace kiv
{

Listener::Listener(const ListenerConfig& config) : myConfig(config)
{
    if (config.isTls())
        myTls = std::make_unique<TlsContext>(config.tlsCertificate, config.tlsKey);
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(static_cast<uint16_t>(config.port));
    if (inet_pton(AF_INET, config.address.c_str(), &socketAddress.sin_addr) != 1)
        throw std::runtime_error("cannot listen on '" + config.address + "': not an IPv4 address");
    mySocket.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!mySocket.isOpen())
        throw std::runtime_error(std::string("cannot create a socket: ") + std::strerror(errno));
    int on = 1;
    ::setsockopt(mySocket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    std::string where = config.address + ":" + std::to_string(config.port);
    if (::bind(mySocket.get(), reinterpret_cast<sockaddr*>(&socketAddress), sizeof socketAddress) != 0)
        throw std::runtime_error("cannot listen on " + where + ": " + std::strerror(errno));
    // The kernel caps the backlog at net.core.somaxconn; a burst of connections waits there
    // rather than being refused.
    if (::listen(mySocket.get(), SOMAXCONN) != 0)
        throw std::runtime_error("cannot listen on " + where + ": " + std::strerror(errno));
    socklen_t length = sizeof socketAddress;
    ::getsockname(mySocket.get(), reinterpret_cast<sockaddr*>(&socketAddress), &length);
    myPort = ntohs(socketAddress.sin_port);
}

Listener::Listener(const ListenerConfig& config, const Listener& bound) : myConfig(config), myPort(bound.myPort)
{
    if (config.isTls())
        myTls = std::make_unique<TlsContext>(config.tlsCertificate, config.tlsKey);
    mySocket.reset(::fcntl(bound.descriptor(), F_DUPFD_CLOEXEC, 0));
    if (!mySocket.isOpen())
        throw std::runtime_error("cannot keep listening on " + url() + ": " + std::strerror(errno));
}

Listener::~Listener() = default;
Listener::Listener(Listener&&) noexcept = default;
Listener& Listener::operator=(Listener&&) noexcept = default;

std::string Listener::url() const
{
    return std::string(myTls ? "https://" : "http://") + myConfig.address + ":" + std::to_string(myPort) +
           "/";
}

} // namespace kiv
