#include "rtsp/message/header_values.h"

#include "platform/text.h"
#include "rtsp/message/header_rules.h"
#include "rtsp/message/header_validation.h"

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

} // namespace rtsptap
