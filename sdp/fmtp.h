// Finding one parameter in the text of an fmtp attribute, as cameras write it. Any thread.
#pragma once

#include <string_view>

namespace rtsptap {

// What follows `mark` ("name=", ignoring case) up to the parameter's end at ";"; a null view without it.
// The name stands at the start or behind a blank or ";", so "config=" is not found in "streamconfig=1".
std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark);

// The first run of characters that are not blanks.
std::string_view FirstWord(std::string_view text);

} // namespace rtsptap
