#include "sdp/session_lines.h"

#include "platform/text.h"
#include "sdp/sdp_reading.h"

namespace rtsptap {
namespace {

// o=<user> <id> <version> IN IP4 <address>, c=IN IP4 <address>
int32_t ReadNetwork(SdpReading &reading, std::string_view value) {
    if (!Contains(value, "IP4"))
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Network Type not supported\n");
    return RTSP_SUCCESS;
}

// t=<start> <stop>
int32_t ReadSessionTime(SdpReading &reading, std::string_view value) {
    if (LeadingNumber(After(value, " ")) < 0)
        return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid Session Time found in SDP\n");
    return RTSP_SUCCESS;
}

constexpr LineReader kSessionLines[] = {{'o', ReadNetwork}, {'c', ReadNetwork}, {'t', ReadSessionTime}};

} // namespace

int32_t ReadSessionLine(SdpReading &reading, char letter, std::string_view value) {
    return ReadWith(kSessionLines, reading, letter, value);
}

} // namespace rtsptap
