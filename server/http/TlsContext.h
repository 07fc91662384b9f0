// The TLS side of an HTTPS listener: its certificate chain and private key (PEM files), TLS
// 1.2 and 1.3 only. Loaded once in the master process, before the workers are forked, so that
// a bad file stops the start with a clear message instead of every worker failing.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace boost::asio::ssl
{
class context;
}

namespace kiv
{

class TlsContext
{
public:
    // Throws std::runtime_error naming the file that cannot be read or used, or saying that
    // the key does not belong to the certificate.
    TlsContext(const std::filesystem::path& certificate, const std::filesystem::path& key);
    ~TlsContext();

    boost::asio::ssl::context& context() { return *myContext; }

private:
    std::unique_ptr<boost::asio::ssl::context> myContext;
};

// Why the files cannot serve TLS; empty when they can (for `kiv-server check`).
std::string findTlsProblem(const std::filesystem::path& certificate, const std::filesystem::path& key);

} // namespace kiv
