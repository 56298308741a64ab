// Requests as they come in (RFC 2326): bytes in, one request or frame at a time out. Touches no socket and never
// throws for what a player sends.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace demo {

struct Request {
    std::string method;
    std::string url;
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;
    std::size_t bodyBytes = 0; // the body itself is passed over

    // The first of that name, whatever its case; empty when there is none.
    std::string_view Header(std::string_view name) const;
};

enum class Taken {
    kNothing, // more bytes are needed
    kFrame,   // an interleaved one, passed over (RFC 2326, 10.12)
    kRequest,
    kTooLong, // from here on no request can be told from what follows; nor from the next
    kMalformed,
};

// Takes the first request or frame off the front of the input.
Taken TakeNext(std::string &input, Request &request);

// Eats a part up to the separator, which is eaten too; without the blanks around it.
std::string_view NextPart(std::string_view &text, char separator);

bool IsSame(std::string_view left, std::string_view right); // ASCII letters of either case

// A decimal number that is all of the text and at most `limit`; -1 otherwise.
long NumberOf(std::string_view text, long limit);

} // namespace demo
