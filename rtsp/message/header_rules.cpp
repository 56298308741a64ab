#include "rtsp/message/header_list.h"

#include "platform/printers.h"
#include "platform/text.h"
#include "rtsp/message/methods.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string_view>

namespace rtsptap {

namespace {

// A set of method numbers: bit n stands for method n.
using MethodSet = uint32_t;

constexpr MethodSet Methods(std::initializer_list<RTSPMethod> methods) {
    MethodSet set = 0;
    for (const RTSPMethod method : methods) set |= MethodSet{1} << method;
    return set;
}
constexpr MethodSet AllMethodsExcept(std::initializer_list<RTSPMethod> methods) { return ~Methods(methods); }
constexpr bool Has(MethodSet set, uint32_t method) { return (set >> method & 1) != 0; }

// ---- characters ----

bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// Every one of `length` characters is of the kind; none at all is fine.
int32_t ValidateCharacters(const char *text, int32_t length, bool (*isOfKind)(char)) {
    if (text == nullptr || length < 0) return RTSP_FAILURE;
    return std::all_of(text, text + length, isOfKind) ? RTSP_SUCCESS : RTSP_FAILURE;
}

// ---- one entry of a list under validation, as its messages name it ----

struct CheckedHeader {
    const char *function; // named by every message
    const char *name;
    const char *value; // may be null
    uint32_t method;
};

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

// Each method says it in its own way.
bool CheckModifiedSince(const CheckedHeader &header) {
    return header.method == RTSP_DESCRIBE ? CheckPresentForMethod(header) : CheckPresentForSetup(header);
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

// ---- one row a header ----

using ValueCheck = bool (*)(const CheckedHeader &header); // false after its message

constexpr MethodSet kAll = AllMethodsExcept({});

struct HeaderRule {
    std::string_view name; // compared with its case
    MethodSet allowed;     // methods that may carry it
    ValueCheck check = nullptr;
    MethodSet checkedFor = kAll; // whose values are looked at
};

constexpr HeaderRule kHeaders[] = {
    {"Accept", kAll, CheckAccept},
    {"Accept-Encoding", kAll, CheckPresent},
    {"Accept-Language", kAll, CheckPresent},
    {"Authorization", kAll, CheckPresent},
    {"Bandwidth", kAll, CheckBandwidth},
    {"Blocksize", AllMethodsExcept({RTSP_OPTIONS, RTSP_TEARDOWN})}, // Kept: its value is not looked at
    {"Cache-Control", Methods({RTSP_SETUP}), CheckCacheControl},
    {"Conference", Methods({RTSP_SETUP}), CheckPresentForSetup},
    {"Connection", kAll, CheckPresent},
    {"Content-Base", kAll, CheckPresent},
    {"Content-Encoding", Methods({RTSP_DESCRIBE})},
    {"Content-Language", Methods({RTSP_DESCRIBE})},
    {"Content-Length", kAll},
    {"Content-Location", kAll, CheckPresent},
    {"Content-Type", kAll, CheckContentType, Methods({RTSP_DESCRIBE})},
    {"CSeq", kAll, CheckSequenceNumber},
    {"Date", kAll, CheckPresent},
    {"Expires", Methods({RTSP_DESCRIBE})},
    {"From", kAll, CheckPresent},
    {"If-Modified-Since", Methods({RTSP_DESCRIBE, RTSP_SETUP}), CheckModifiedSince},
    {"Last-Modified", kAll, CheckPresent},
    {"Param", kAll}, // Kept: no header of RFC 2326, and yet it passes without the custom flag
    {"Proxy-Authenticate", kAll, CheckPresent},
    {"Proxy-Require", kAll, CheckPresent},
    {"Range", Methods({RTSP_PLAY, RTSP_PAUSE}), CheckRange},
    {"Referer", kAll, CheckPresent},
    {"Require", kAll, CheckPresent},
    {"Scale", Methods({RTSP_PLAY}), CheckFactor},
    {"Session", AllMethodsExcept({RTSP_OPTIONS}), CheckSessionId, Methods({RTSP_SETUP})},
    {"Speed", kAll, CheckFactor, Methods({RTSP_PLAY})},
    {"Transport", Methods({RTSP_SETUP}), CheckTransport},
    {"User-Agent", kAll, CheckPresent},
    {"Via", kAll, CheckPresent},
};

const HeaderRule *FindRule(std::string_view name) {
    const auto *const rule = std::ranges::find(kHeaders, name, &HeaderRule::name);
    return rule == std::end(kHeaders) ? nullptr : rule;
}

// ---- a list ----

// A list that was just created, or whose last header was taken out, asks for nothing and is acceptable.
bool HoldsNoHeader(const RTSPHeaderStruct &first) {
    return first.headerName == nullptr && first.headerValue == nullptr && first.next == nullptr;
}

bool IsHeaderAcceptable(const CallTrace &trace, const RTSPHeaderStruct &header, uint32_t method) {
    const bool isCustom = header.isCustom == 1;
    const HeaderRule *const rule = header.headerName != nullptr ? FindRule(header.headerName) : nullptr;
    if (header.headerName == nullptr || !(isCustom || rule != nullptr))
        return trace.Fail(false, "\tEXIT : %s : Custom Header Added without adding Custom Flag while adding\n\n");
    if (rule != nullptr && !Has(rule->allowed, method)) {
        RtpRtspErrorPrint("\tEXIT : %s : (%s) Header is invalid for this method\n\n", trace.Function(),
                          header.headerName);
        return false;
    }
    if (isCustom || rule->check == nullptr || !Has(rule->checkedFor, method)) return true;
    return rule->check({trace.Function(), header.headerName, header.headerValue, method});
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
