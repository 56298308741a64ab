#include "sdp/fmtp.h"

#include "platform/text.h"

namespace rtsptap {

namespace {

constexpr std::string_view kAroundWords = " \t\"";
constexpr std::string_view kBeforeName = " \t;";

} // namespace

std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark) {
    std::string_view inside; // what follows the first mark within another name
    for (std::size_t at = 0; at + mark.size() <= fmtp.size(); ++at) {
        if (!EqualIgnoringCase(fmtp.substr(at, mark.size()), mark)) continue;
        std::string_view rest = fmtp.substr(at + mark.size());
        rest = rest.substr(0, rest.find(';'));
        if (at == 0 || Contains(kBeforeName, fmtp.substr(at - 1, 1))) return rest;
        if (inside.data() == nullptr) inside = rest;
    }
    return inside;
}

std::string_view FirstWord(std::string_view text) {
    const std::size_t start = text.find_first_not_of(kAroundWords);
    if (start == text.npos) return {};
    return text.substr(start, text.find_first_of(kAroundWords, start) - start);
}

} // namespace rtsptap
