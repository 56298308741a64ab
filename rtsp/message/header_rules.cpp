
#include "rtsp/message/header_rules.h"

#include "platform/printers.h"
#include "platform/text.h"
#include "rtsp/message/header_list.h"
#include "rtsp/message/methods.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace rtsptap {

namespace {

std::string_view ValueOf(const CheckedHeader &header) {
    return header.value == nullptr ? std::string_view("") : header.value;
}
// For %s: what is missing prints as nothing.
const char *Printable(const CheckedHeader &header) { return ValueOf(header).data(); }
int MethodNumber(const CheckedHeader &header) { return static_cast<int>(header.method); }

// ---- refusals that several rules share; each returns false ----

bool RefuseNotValid(const CheckedHeader &header) {
    RtpRtspErrorPrint("\tEXIT : %s :%s header's value (%s) is Not Valid \n", header.function, header.name,
                      Printable(header));
    return false;
}

bool RefuseNotValidForMethod(const CheckedHeader &header) {
    RtpRtspErrorPrint("\tEXIT : %s :%s header's (Method : %d) value (%s) is Not Valid \n", header.function,
                      header.name, MethodNumber(header), Printable(header));
    return false;
}

bool RefuseMalformedForMethod(const CheckedHeader &header) {
    RtpRtspErrorPrint("\tEXIT : %s :%s header's (Method : %d) value (%s) is not valid \n", header.function,
                      header.name, MethodNumber(header), Printable(header));
    return false;
}

bool RefuseNullForMethod(const CheckedHeader &header) {
    RtpRtspErrorPrint("\tEXIT : %s :%s header's (Method : %d) value is NULL\n", header.function, header.name,
                      MethodNumber(header));
    return false;
}

// ---- kinds of value ----

bool IsDigits(std::string_view text) {
    return ValidateNumericString(text.data(), static_cast<int32_t>(text.size())) == RTSP_SUCCESS;
}

bool CheckAccept(const CheckedHeader &header) {
    if (Contains(ValueOf(header), "application/sdp")) return true;
    RtpRtspErrorPrint("\tEXIT : %s :Accept Header's value (%s) is not valid \n", header.function,
                      Printable(header));
    return false;
}

bool CheckPresent(const CheckedHeader &header) {
    if (header.value != nullptr) return true;
    RtpRtspErrorPrint("\tEXIT : %s :%s header's value is NULL\n", header.function, header.name);
    return false;
}

bool CheckPresentForMethod(const CheckedHeader &header) {
    return header.value != nullptr || RefuseNullForMethod(header);
}

bool CheckPresentForSetup(const CheckedHeader &header) {
    if (header.value != nullptr) return true;
    RtpRtspErrorPrint("\tEXIT : %s :%s Header's (Method : %d) Value is NULL \n", header.function, header.name,
                      MethodNumber(header));
    return false;
}

bool CheckNonZero(const CheckedHeader &header, std::string_view digits) {
    if (!IsDigits(digits)) return RefuseNotValid(header);
    return LeadingNumber(digits) != 0 || RefuseNullForMethod(header);
}

bool CheckSequenceNumber(const CheckedHeader &header) { return CheckNonZero(header, ValueOf(header)); }

// Kept: the first three characters are not looked at.
bool CheckBandwidth(const CheckedHeader &header) {
    constexpr std::size_t kSkipped = 3;
    const std::string_view value = ValueOf(header);
    return value.size() < kSkipped ? RefuseNotValid(header) : CheckNonZero(header, value.substr(kSkipped));
}

bool CheckBlocksize(const CheckedHeader &header) {
    if (!IsDigits(ValueOf(header))) return RefuseMalformedForMethod(header);
    return LeadingNumber(ValueOf(header)) != 0 || RefuseNullForMethod(header);
}

bool CheckRange(const CheckedHeader &header) {
    constexpr std::array<std::string_view, 3> kUnits = {"npt=", "smpte=", "clock="};
    const std::string_view value = ValueOf(header);
    const auto fits = [value](std::string_view unit) {
        return value.starts_with(unit) && value.size() > unit.size();
    };
    return std::ranges::any_of(kUnits, fits) || RefuseMalformedForMethod(header);
}

bool CheckFactor(const CheckedHeader &header) {
    const std::string_view value = ValueOf(header);
    const bool looksLikeNumber = IsDigits(value) || Contains(value, ".") || Contains(value, "-");
    return (looksLikeNumber && LeadingFraction(value) != 0.0) || RefuseNullForMethod(header);
}

bool CheckContentType(const CheckedHeader &header) {
    return Contains(ValueOf(header), "text/parameters") || RefuseNotValidForMethod(header);
}

// Kept: only a value that equals all the directives at once is refused, so none ever is.
bool CheckCacheControl(const CheckedHeader &header) {
    constexpr std::array<std::string_view, 5> kDirectives = {"no-cache", "max-stale", "min-fresh", "only-if-cached",
                                                             "cache-extension"};
    if (!CheckPresentForSetup(header)) return false;
    const auto equals = [value = ValueOf(header)](std::string_view directive) { return value == directive; };
    if (!std::ranges::all_of(kDirectives, equals)) return true;
    RtpRtspErrorPrint("\tEXIT : %s :%s Header's (Method : %d) Value (%s) is invalide\n", header.function,
                      header.name, MethodNumber(header), Printable(header));
    return false;
}

bool CheckSessionId(const CheckedHeader &header) {
    if (!CheckPresentForSetup(header)) return false;
    const auto length = static_cast<int32_t>(ValueOf(header).size());
    return ValidateAlphaNumericString(header.value, length) == RTSP_SUCCESS || RefuseNotValidForMethod(header);
}

bool CheckTransport(const CheckedHeader &header) {
    const std::string_view value = ValueOf(header);
    const bool complete = Contains(value, "RTP/AVP") &&
                          (Contains(value, "unicast") || Contains(value, "multicast")) &&
                          (Contains(value, "client_port") || Contains(value, "interleaved"));
    return complete || RefuseNotValidForMethod(header);
}

// ---- which value is checked how, for which methods ----

struct ValueRule {
    std::string_view name;
    MethodSet methods;
    bool (*check)(const CheckedHeader &header);
};

constexpr MethodSet kAll = AllMethodsExcept({});

constexpr std::array kValueRules = {
    ValueRule{"Accept", kAll, CheckAccept},
    ValueRule{"Accept-Encoding", kAll, CheckPresent},
    ValueRule{"Accept-Language", kAll, CheckPresent},
    ValueRule{"Authorization", kAll, CheckPresent},
    ValueRule{"Connection", kAll, CheckPresent},
    ValueRule{"Content-Base", kAll, CheckPresent},
    ValueRule{"Content-Location", kAll, CheckPresent},
    ValueRule{"From", kAll, CheckPresent},
    ValueRule{"Proxy-Authenticate", kAll, CheckPresent},
    ValueRule{"Proxy-Require", kAll, CheckPresent},
    ValueRule{"Referer", kAll, CheckPresent},
    ValueRule{"Require", kAll, CheckPresent},
    ValueRule{"User-Agent", kAll, CheckPresent},
    ValueRule{"Date", kAll, CheckPresent},
    ValueRule{"Last-Modified", kAll, CheckPresent},
    ValueRule{"Via", kAll, CheckPresent},
    ValueRule{"CSeq", kAll, CheckSequenceNumber},
    ValueRule{"Bandwidth", kAll, CheckBandwidth},
    // Kept: never reached, because these two methods may not carry the header.
    ValueRule{"Blocksize", Methods({RTSP_OPTIONS, RTSP_TEARDOWN}), CheckBlocksize},
    ValueRule{"Range", Methods({RTSP_PLAY, RTSP_PAUSE}), CheckRange},
    ValueRule{"Scale", Methods({RTSP_PLAY}), CheckFactor},
    ValueRule{"Speed", Methods({RTSP_PLAY}), CheckFactor},
    ValueRule{"Content-Type", Methods({RTSP_DESCRIBE}), CheckContentType},
    ValueRule{"If-Modified-Since", Methods({RTSP_DESCRIBE}), CheckPresentForMethod},
    ValueRule{"If-Modified-Since", Methods({RTSP_SETUP}), CheckPresentForSetup},
    ValueRule{"Cache-Control", Methods({RTSP_SETUP}), CheckCacheControl},
    ValueRule{"Conference", Methods({RTSP_SETUP}), CheckPresentForSetup},
    ValueRule{"Session", Methods({RTSP_SETUP}), CheckSessionId},
    ValueRule{"Transport", Methods({RTSP_SETUP}), CheckTransport},
};

} // namespace

bool IsValueAcceptable(const CheckedHeader &header) {
    for (const ValueRule &rule : kValueRules)
        if (rule.name == header.name && Has(rule.methods, header.method)) return rule.check(header);
    return true;
}

namespace {

constexpr MethodSet kAllMethods = AllMethodsExcept({});

struct HeaderRule {
    std::string_view name; // compared with its case
    MethodSet allowed = kAllMethods;
};

constexpr std::array kKnownHeaders = {
    HeaderRule{"Accept"},
    HeaderRule{"Accept-Encoding"},
    HeaderRule{"Accept-Language"},
    HeaderRule{"Authorization"},
    HeaderRule{"Bandwidth"},
    HeaderRule{"Blocksize", AllMethodsExcept({RTSP_OPTIONS, RTSP_TEARDOWN})},
    HeaderRule{"Cache-Control", Methods({RTSP_SETUP})},
    HeaderRule{"Conference", Methods({RTSP_SETUP})},
    HeaderRule{"Connection"},
    HeaderRule{"Content-Base"},
    HeaderRule{"Content-Encoding", Methods({RTSP_DESCRIBE})},
    HeaderRule{"Content-Language", Methods({RTSP_DESCRIBE})},
    HeaderRule{"Content-Length"},
    HeaderRule{"Content-Location"},
    HeaderRule{"Content-Type"},
    HeaderRule{"CSeq"},
    HeaderRule{"Date"},
    HeaderRule{"Expires", Methods({RTSP_DESCRIBE})},
    HeaderRule{"From"},
    HeaderRule{"If-Modified-Since", Methods({RTSP_DESCRIBE, RTSP_SETUP})},
    HeaderRule{"Last-Modified"},
    HeaderRule{"Proxy-Authenticate"},
    HeaderRule{"Proxy-Require"},
    HeaderRule{"Range", Methods({RTSP_PLAY, RTSP_PAUSE})},
    HeaderRule{"Referer"},
    HeaderRule{"Require"},
    HeaderRule{"Scale", Methods({RTSP_PLAY})},
    HeaderRule{"Session", AllMethodsExcept({RTSP_OPTIONS})},
    HeaderRule{"Speed"},
    HeaderRule{"Transport", Methods({RTSP_SETUP})},
    HeaderRule{"User-Agent"},
    HeaderRule{"Via"},
};

constexpr std::string_view kUnflaggedCustomHeader = "Param";

const HeaderRule *FindRule(std::string_view name) {
    const auto rule = std::ranges::find(kKnownHeaders, name, &HeaderRule::name);
    return rule == kKnownHeaders.end() ? nullptr : &*rule;
}

} // namespace

// Kept: "Param" is no header of RFC 2326 and yet passes without the custom flag.
bool IsKnownHeader(std::string_view name) { return name == kUnflaggedCustomHeader || FindRule(name) != nullptr; }

bool IsAllowedHeader(std::string_view name, uint32_t method) {
    const HeaderRule *const rule = FindRule(name);
    return rule == nullptr || Has(rule->allowed, method);
}

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
