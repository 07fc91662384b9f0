// A listening socket, bound once in the master process before the workers are forked (every
// worker accepts on it), with the TLS context of an HTTPS listener.
#pragma once

#include "common/FileDescriptor.h"
#include "config/ServerConfig.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kiv
{

class TlsContext;

class Listener
{
public:
    // Binds and listens; port 0 picks a free port (see port()). Throws std::runtime_error
    // naming the address, or the TLS file that cannot be used.
    explicit Listener(const ListenerConfig& config);
    ~Listener();
    Listener(Listener&&) noexcept;
    Listener& operator=(Listener&&) noexcept;

    int descriptor() const { return mySocket.get(); }
    uint16_t port() const { return myPort; }
    const ListenerConfig& config() const { return myConfig; }
    TlsContext* tls() const { return myTls.get(); }
    // "https://127.0.0.1:8443/"
    std::string url() const;

private:
    ListenerConfig myConfig;
    FileDescriptor mySocket;
    uint16_t myPort = 0;
    std::unique_ptr<TlsContext> myTls;
};

} // namespace kiv
