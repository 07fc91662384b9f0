// What the connection layer asks of the site for each complete request. Between the two calls
// the connection layer checks the login (if the request needs one) on its own password
// threads, with the failures throttled, so that the site's render threads never wait for a
// password check and a page that needs no login never waits behind one.
#pragma once

#include "http/HttpMessage.h"

#include <functional>
#include <optional>
#include <string>

namespace kiv
{

struct LoginAttempt
{
    std::string user;        // the name sent; becomes request.user when the password is right
    std::string throttleKey; // the account as the failures are counted (region and user name)
    std::string region;      // for the log
    // Cheap: the same name and password were accepted before (no hashing).
    std::function<bool()> isRemembered;
    // Expensive (argon2id): runs on a password thread.
    std::function<bool()> verify;
};

class RequestHandler
{
public:
    virtual ~RequestHandler() = default;

    // On the connection thread, so it must not block: the credentials to check before the
    // request is handled, when it asks for a protected area and carries Basic credentials.
    virtual std::optional<LoginAttempt> loginAttempt(const HttpRequest& request) = 0;

    // On a render thread. request.user is set when a login attempt was accepted; a request
    // for a protected area without it gets the login prompt.
    virtual void handle(HttpRequest& request, HttpResponse& response) = 0;
};

} // namespace kiv
