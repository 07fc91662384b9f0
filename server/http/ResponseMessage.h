// The wire form of a response, built with Boost.Beast: the headers the site set (a header that
// could split the response is dropped and logged), Date, Server, the framing headers, and the
// body from memory or from an open file a piece at a time.
#pragma once

#include "http/HttpMessage.h"

#include <boost/beast/http/message_generator.hpp>

namespace kiv
{

struct ResponseFraming
{
    bool headRequest = false; // headers only, with the length the body would have
    bool keepAlive = false;
};

// The number of body bytes a response sends (for the access log).
uint64_t bodyBytesOf(const HttpResponse& response, const ResponseFraming& framing);

boost::beast::http::message_generator makeResponseMessage(HttpResponse&& response,
                                                          const ResponseFraming& framing);

} // namespace kiv
