// Decoding of what a request carries for pages: query strings and url-encoded forms,
// multipart forms (field values and file contents as bytes, names in the order sent),
// and cookies.
#pragma once

#include "common/Text.h"
#include "http/HttpMessage.h"

#include <optional>
#include <string_view>

namespace kiv
{

// "a=1&b=x+y&a=2" gives a=1, b="x y", a=2. Malformed escapes are kept literally rather
// than dropping the pair.
NameValueList parseUrlEncoded(std::string_view text);

// The boundary parameter of a multipart/form-data content type; empty if there is none.
std::string multipartBoundary(std::string_view contentType);

// Field values in order; a file field's value is the file's content. nullopt when the
// body is not well-formed multipart data. fileNames, when given, receives each file field's
// name with the file name the client sent, as sent (it may hold folders).
std::optional<NameValueList> parseMultipart(std::string_view body, std::string_view boundary,
                                            NameValueList* fileNames = nullptr);

NameValueList parseCookies(std::string_view cookieHeader);

// More fields than this make a form suspect: "&a&a&a..." costs a few bytes per field on the
// wire but two strings each in memory, so a body within the size limit could still take
// hundreds of megabytes.
constexpr size_t kMaxFormFields = 10000;

// The post arguments of a request: url-encoded or multipart bodies of a POST; empty
// otherwise. nullopt for a malformed multipart body or one with more than kMaxFormFields
// fields.
std::optional<NameValueList> parsePostArguments(const HttpRequest& request);

} // namespace kiv
