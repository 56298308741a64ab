// Finding one parameter in the text of an fmtp attribute, as cameras write it. Any thread.
#pragma once

#include <string_view>

namespace rtsptap {

// What follows `mark` ("name=", ignoring case) up to the parameter's end at ";"; a null view without it.
// A name that stands at the start or behind a blank or ";" goes before one inside another: of
// "streamconfig=1;config=2" "config=" is 2, but 1 where nothing else is found.
std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark);

// The first run of characters that are neither blanks nor quotes.
std::string_view FirstWord(std::string_view text);

} // namespace rtsptap
