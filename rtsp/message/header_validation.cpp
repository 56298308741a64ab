#include "rtsp/message/header_validation.h"

#include "platform/call_trace.h"
#include "platform/text.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/header_rules.h"
#include "rtsp/message/header_slots.h"
#include "rtsp/message/header_values.h"
#include "rtsp/message/method_names.h"

#include <algorithm>
#include <string_view>

namespace rtsptap {

namespace {

bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// Every one of `length` characters is of the kind; none at all is fine.
int32_t ValidateCharacters(const char *text, int32_t length, bool (*isOfKind)(char)) {
    if (text == nullptr || length < 0) return RTSP_FAILURE;
    return std::all_of(text, text + length, isOfKind) ? RTSP_SUCCESS : RTSP_FAILURE;
}

// A list that was just created, or whose last header was taken out, asks for nothing and is acceptable.
bool HoldsNoHeader(const RTSPHeaderStruct &first) {
    return first.headerName == nullptr && first.headerValue == nullptr && first.next == nullptr;
}

bool IsHeaderAcceptable(const CallTrace &trace, const RTSPHeaderStruct &header, uint32_t method) {
    const bool isCustom = header.isCustom == 1;
    if (header.headerName == nullptr || !(isCustom || IsKnownHeader(header.headerName)))
        return trace.Fail(false, "\tEXIT : %s : Custom Header Added without adding Custom Flag while adding\n\n");
    if (!IsAllowedHeader(header.headerName, method)) {
        RtpRtspErrorPrint("\tEXIT : %s : (%s) Header is invalid for this method\n\n", trace.Function(),
                          header.headerName);
        return false;
    }
    return isCustom || IsValueAcceptable({trace.Function(), header.headerName, header.headerValue, method});
}

} // namespace

int32_t ValidateHeaderList(intptr_t headerList, uint32_t method) {
    const CallTrace trace(__func__);
    const RTSPHeaderStruct *const first = FirstHeader(headerList);
    if (first == nullptr || method >= kMethodNumbers)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid headerlist or RTSP method\n");
    if (HoldsNoHeader(*first)) return RTSP_SUCCESS;
    for (const RTSPHeaderStruct *header = first; header != nullptr; header = header->next)
        if (!IsHeaderAcceptable(trace, *header, method)) return RTSP_FAILURE;
    return RTSP_SUCCESS;
}

int32_t ValidateNumericString(const char *text, int32_t length) {
    return ValidateCharacters(text, length, IsDigit);
}

int32_t ValidateAlphaNumericString(const char *text, int32_t length) {
    return ValidateCharacters(text, length, [](char c) { return IsDigit(c) || IsLetter(c); });
}

} // namespace rtsptap
