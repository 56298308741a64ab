#include "rtsp/message/methods.h"

namespace rtsptap {
namespace {

constexpr NotAddedTexts kAcceptTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Accept' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Accept' Request Header %s\n"};
constexpr NotAddedTexts kSessionTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Session' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Session' Request Header %s\n"};
constexpr NotAddedTexts kRangeTexts{
    .userGiven = "\tEXIT : %s :Problem Occured while Adding user given 'Range' Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occured while Adding default 'Range' Request Header %s\n"};

constexpr bool kLaterStreamsOnly = true; // the first SETUP has no session to name yet

constexpr DefaultHeader kSessionHeader{"Session", kSessionId, kSessionTexts};
constexpr DefaultHeader kDescribeHeaders[] = {{"Accept", "application/sdp", kAcceptTexts}};
constexpr DefaultHeader kSetupHeaders[] = {{"Session", kSessionId, kSessionTexts, kLaterStreamsOnly}};
constexpr DefaultHeader kPlayHeaders[] = {{"Range", "npt=0.000-", kRangeTexts}, kSessionHeader};
constexpr DefaultHeader kTeardownHeaders[] = {kSessionHeader};
constexpr DefaultHeader kPauseHeaders[] = {kSessionHeader};
constexpr DefaultHeader kParameterHeaders[] = {
    {.name = "Session", .value = kSessionId, .texts = kSessionTexts, .onlyWithValue = true}};

constexpr Method kMethods[] = {
    {RTSP_OPTIONS, "OPTIONS", false, CLIENT_OPTIONS_SENT_STATE, {}},
    {RTSP_DESCRIBE, "DESCRIBE", false, CLIENT_DESCRIBE_SENT_STATE, kDescribeHeaders},
    {RTSP_SETUP, "SETUP", true, CLIENT_READY_STATE, kSetupHeaders},
    {RTSP_PLAY, "PLAY", true, CLIENT_PLAYING_STATE, kPlayHeaders},
    {RTSP_TEARDOWN, "TEARDOWN", false, CLIENT_INIT_STATE, kTeardownHeaders},
    {RTSP_PAUSE, "PAUSE", true, CLIENT_PAUSE_STATE, kPauseHeaders},
    {RTSP_GET_PARAMETER, "GET_PARAMETER", true, kStays, kParameterHeaders},
    {kSetParameter, "SET_PARAMETER", true, kStays, kParameterHeaders},
};

} // namespace

constinit const NotAddedTexts kUserAgentTexts{
    .userGiven = "\tEXIT : %s :Problem Occurred while Adding Request Header %s\n",
    .byDefault = "\tEXIT : %s :Problem Occurred while Adding Request Header %s\n"};
constinit const NotAddedTexts kAuthorizationTexts = kAcceptTexts; // Kept: it is told like Accept

const Method *FindMethod(uint32_t number) {
    for (const Method &method : kMethods)
        if (method.number == number) return &method;
    return nullptr;
}

const char *MethodName(uint32_t number) {
    const Method *const method = FindMethod(number);
    return method != nullptr ? method->name : "";
}

} // namespace rtsptap
