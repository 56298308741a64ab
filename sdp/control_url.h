// Where control attributes lead (RFC 2326, C.1.1). Application thread.
#pragma once

#include "platform/text.h"

#include <string_view>

namespace rtsptap {

struct DescribedSession;
struct MediaSession;

inline constexpr std::size_t kLongestPlainControl = 256; // characters of a control attribute's value
inline constexpr std::size_t kLongestControlUrl = 4096;  // characters of a base, and of an URL that it leads to

// Whether an URL that was joined is longer than requests may be. Behind the URL that a program opened there is
// always room for a control attribute.
bool IsTooLong(const DescribedSession &to, std::string_view url);

// The URL that was described. Null when memory is short, as for the next ones.
HeapText RequestUrl(const DescribedSession &to);

// Below that URL, unless it is an URL itself; cut to 255 characters.
HeapText PlainControlUrl(const DescribedSession &to, std::string_view control);

// Resolved against `base`, as RFC 3986 says but for what devices mean: a base without a slash at its end is a
// folder all the same, and what stands behind a base with a query stands behind the query.
HeapText JoinControl(std::string_view base, std::string_view control);

// What control attributes are relative to, as far as the reply's headers tell: its Content-Base or
// Content-Location, else, or where that is too long, the URL that was described.
HeapText BaseUrl(const DescribedSession &to);

// Notes with every stream the first one that has the same URL.
void NoteSameControls(const MediaSession &session);

// True for "<scheme>://...".
bool IsWholeUrl(std::string_view text);

} // namespace rtsptap
