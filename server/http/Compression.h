// gzip for responses (zlib): text bodies over a kilobyte, for clients whose Accept-Encoding
// allows it. Compression happens on the render thread that made the response, never on the
// thread that serves the connections.
#pragma once

#include "http/HttpMessage.h"

#include <optional>
#include <string>
#include <string_view>

namespace kiv
{

// Bodies below this size gain too little to be worth compressing.
constexpr size_t kCompressMinBytes = 1024;
// Static text files up to this size are read and compressed; larger ones are sent from disk
// as they are, so that no response costs more than this much memory.
constexpr size_t kCompressMaxFileBytes = 1024 * 1024;
// Appended inside the quotes of a file's ETag when its gzip form is sent: the two forms are
// different bytes and must not share a validator.
constexpr std::string_view kGzipTagSuffix = "-gzip";

// Whether an Accept-Encoding header accepts gzip ("gzip", "x-gzip" or "*", not with q=0).
bool acceptsGzip(std::string_view acceptEncoding);

// Text, JSON, JavaScript, XML and SVG; not images, archives or fonts, which are compressed
// already or gain nothing.
bool isCompressibleType(std::string_view contentType);

std::optional<std::string> gzipCompress(std::string_view data);

// Replaces the response's body (or a small static file) with its gzip form when the client
// accepts it and it is worth it, and marks every response whose form depends on the
// request's Accept-Encoding with "Vary: Accept-Encoding".
void compressForClient(const HttpRequest& request, HttpResponse& response);

} // namespace kiv
