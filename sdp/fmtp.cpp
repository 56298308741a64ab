#include "sdp/fmtp.h"

#include "platform/text.h"

namespace rtsptap {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kBeforeName = " \t;";

} // namespace

std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark) {
    for (std::size_t at = 0; at + mark.size() <= fmtp.size(); ++at) {
        const bool nameStarts = at == 0 || Contains(kBeforeName, fmtp.substr(at - 1, 1));
        if (!nameStarts || !EqualIgnoringCase(fmtp.substr(at, mark.size()), mark)) continue;
        const std::string_view rest = fmtp.substr(at + mark.size());
        return rest.substr(0, rest.find(';'));
    }
    return {};
}

std::string_view FirstWord(std::string_view text) {
    const std::size_t start = text.find_first_not_of(kBlanks);
    if (start == text.npos) return {};
    return text.substr(start, text.find_first_of(kBlanks, start) - start);
}

} // namespace rtsptap
