#include "rtsp/message/header_rules.h"

#include <algorithm>
#include <array>

namespace rtsptap {

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

} // namespace rtsptap
