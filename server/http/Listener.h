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
    // A reload: shares the bound socket of a listener of the same address and port (a
    // duplicate descriptor), so that no connection waiting in it is lost and the old listener
    // goes on serving until its workers are done, with the TLS files of config read again.
    Listener(const ListenerConfig& config, const Listener& bound);
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
