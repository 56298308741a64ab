#include "sdp/control_url.h"

#include "platform/url.h"
#include "sdp/sdp_parser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rtsptap {
namespace {

constexpr std::size_t kRelativeUrlSize = 256; // terminator included; longer ones are cut

HeapText Concatenate(std::string_view first, std::string_view middle, std::string_view last) {
    HeapText text(static_cast<char *>(std::malloc(first.size() + middle.size() + last.size() + 1)));
    char *end = text.get();
    if (!text) return text;
    for (const std::string_view piece : {first, middle, last}) end = std::copy(piece.begin(), piece.end(), end);
    *end = '\0';
    return text;
}

} // namespace

HeapText RequestUrl(const DescribedSession &to) {
    char url[kLongestControlUrl];
    (void)snprintf(url, sizeof url, "rtsp://%s:%d/%s", to.host, to.port, to.path);
    return DuplicateText(url);
}

HeapText PlainControlUrl(const DescribedSession &to, std::string_view control) {
    if (Contains(control, "rtsp://")) return DuplicateText(control);
    char url[kRelativeUrlSize];
    (void)snprintf(url, sizeof url, "rtsp://%s:%d/%s/%.*s", to.host, to.port, to.path,
                   static_cast<int>(control.size()), control.data());
    return DuplicateText(url);
}

bool IsWholeUrl(std::string_view text) {
    const UrlParts parts = SplitUrl(text);
    return !parts.scheme.empty() && parts.hasAuthority;
}

HeapText JoinControl(std::string_view base, std::string_view control) {
    if (control.empty() || control == "*") return DuplicateText(base);
    if (IsWholeUrl(control)) return DuplicateText(control);
    if (control.starts_with('/') || control.starts_with('?')) return JoinUrl(base, control);
    const std::string_view slash = base.ends_with('/') ? "" : "/";
    const bool hasDots = control.starts_with("./") || control.starts_with("../");
    if (!hasDots || SplitUrl(base).hasQuery) return Concatenate(base, slash, control);
    const HeapText folder = Concatenate(base, slash, "");
    return folder ? JoinUrl(folder.get(), control) : nullptr;
}

HeapText BaseUrl(const DescribedSession &to) {
    HeapText url = RequestUrl(to);
    return url && !to.contentBase.empty() ? JoinUrl(url.get(), to.contentBase) : std::move(url);
}

} // namespace rtsptap
