// Reads one HTTP/1.x request from the bytes of a connection. Boost.Beast's parser does the
// parsing; this class adds the server's rules around it: the size limits with the status each
// one answers (blank lines before the request line count towards the head), one framing for
// the body, exactly one Host, no folded header lines, and the target decoded into a path.
// It never touches a socket, so the connection layer, the tests and the fuzz target drive it
// the same way.
#pragma once

#include "config/ServerConfig.h"
#include "http/HttpMessage.h"

#include <memory>
#include <string>
#include <string_view>

namespace kiv
{

enum class ReadState
{
    NeedMore,  // offer more bytes
    HeadReady, // the head is complete and a body follows (time for "100 Continue")
    Complete,  // request() is whole; bytes after it belong to the next request
    Refused    // refusalStatus() says what to answer before closing
};

class RequestReader
{
public:
    explicit RequestReader(const ServerLimits& limits);
    ~RequestReader();
    RequestReader(const RequestReader&) = delete;
    RequestReader& operator=(const RequestReader&) = delete;

    // Starts over for the next request of the connection.
    void reset();

    // Reads from the connection's unused bytes and returns how many it used. Bytes it leaves
    // must be offered again at the front of the next call (Beast reads a line only whole).
    size_t feed(std::string_view bytes);

    ReadState state() const { return myState; }
    // Whether any byte of this request has arrived (a stalled client then gets 408).
    bool started() const { return myHeadConsumed > 0 || myScanned > 0; }
    int refusalStatus() const { return myRefusalStatus; } // 400, 413, 414, 431, 501 or 505
    const std::string& refusalReason() const { return myRefusalReason; }
    // The client waits for "100 Continue" before it sends the body.
    bool expectsContinue() const;
    HttpRequest& request() { return myRequest; }

private:
    class Parser;

    size_t skipBlankLines(std::string_view bytes);
    bool scanHead(std::string_view unused);
    size_t refuse(int status, std::string reason, size_t used);
    int statusForParserError(int code, std::string_view unused) const;

    const ServerLimits& myLimits;
    HttpRequest myRequest;
    std::unique_ptr<Parser> myParser;
    ReadState myState = ReadState::NeedMore;
    int myRefusalStatus = 0;
    std::string myRefusalReason;

    // Offsets count from the first byte of this request, blank lines included.
    size_t myHeadConsumed = 0; // head bytes the parser (or the blank-line skip) has used
    size_t myScanned = 0;      // head bytes checked by scanHead
    size_t myLineStart = 0;    // where the request line begins, after the blank lines
    size_t myHeadEnd = 0;      // just past the empty line that ends the head; 0 until seen
    bool myLineBegun = false;  // a byte of the request line has arrived
    bool myLineEnded = false;  // the request line's end has been seen
    bool myAtLineStart = false;
    bool myPendingReturn = false; // a CR at the start of a line: the head may end here
};

} // namespace kiv
