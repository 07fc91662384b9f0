// TLS contexts with OpenSSL through Boost.Asio.
#include "http/TlsContext.h"

#include <boost/asio/ssl/context.hpp>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace kiv
{

namespace
{

// OpenSSL's reason for the last failure, and its error queue emptied.
std::string openSslReason()
{
    unsigned long code = ERR_get_error();
    char text[256] = "unknown reason";
    if (code != 0)
        ERR_error_string_n(code, text, sizeof text);
    ERR_clear_error();
    return text;
}

void requireReadable(const std::filesystem::path& file, const char* what)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw std::runtime_error(std::string("cannot read the TLS ") + what + " " + file.string() + ": " +
                                 std::strerror(errno));
}

// A key protected by a passphrase cannot be used by a server that starts unattended; without
// this, OpenSSL would ask for the passphrase on the terminal.
int refusePassphrase(char*, int, int, void*)
{
    return 0;
}

} // namespace

TlsContext::TlsContext(const std::filesystem::path& certificate, const std::filesystem::path& key)
    : myContext(std::make_unique<boost::asio::ssl::context>(boost::asio::ssl::context::tls_server))
{
    requireReadable(certificate, "certificate");
    requireReadable(key, "key");
    SSL_CTX* native = myContext->native_handle();
    SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
    SSL_CTX_set_options(native,
                        SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    // Idle connections give their record buffers back.
    SSL_CTX_set_mode(native, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_default_passwd_cb(native, refusePassphrase);
    if (SSL_CTX_use_certificate_chain_file(native, certificate.c_str()) != 1)
        throw std::runtime_error("the TLS certificate " + certificate.string() +
                                 " is not a PEM certificate chain: " + openSslReason());
    if (SSL_CTX_use_PrivateKey_file(native, key.c_str(), SSL_FILETYPE_PEM) != 1)
    {
        // OpenSSL compares the key with the certificate as it loads it.
        bool mismatch = ERR_GET_REASON(ERR_peek_last_error()) == X509_R_KEY_VALUES_MISMATCH;
        throw std::runtime_error("the TLS key " + key.string() +
                                 (mismatch ? " does not belong to the certificate " + certificate.string()
                                           : std::string(" is not a PEM private key without a passphrase")) +
                                 ": " + openSslReason());
    }
    if (SSL_CTX_check_private_key(native) != 1)
        throw std::runtime_error("the TLS key " + key.string() + " does not belong to the certificate " +
                                 certificate.string() + ": " + openSslReason());
}

TlsContext::~TlsContext() = default;

std::string findTlsProblem(const std::filesystem::path& certificate, const std::filesystem::path& key)
{
    try
    {
        TlsContext context(certificate, key);
        return {};
    }
    catch (const std::exception& problem)
    {
        return problem.what();
    }
}

} // namespace kiv
