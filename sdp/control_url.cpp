#include "sdp/control_url.h"

#include "platform/url.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"
#include "sdp/sdp_parser.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>

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

struct NumberedControl {
    std::string_view url;
    int32_t number;
    RTSPStreamInfo *stream;
    auto operator<=>(const NumberedControl &) const = default;
};

} // namespace

HeapText RequestUrl(const DescribedSession &to) { return DuplicateText(to.requestUrl != nullptr ? to.requestUrl : ""); }

HeapText PlainControlUrl(const DescribedSession &to, std::string_view control) {
    if (Contains(control, "rtsp://")) return DuplicateText(control);
    char url[kRelativeUrlSize];
    (void)snprintf(url, sizeof url, "%s/%.*s", to.requestUrl, static_cast<int>(control.size()), control.data());
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

// Sorted, because a description may have thousands of streams.
void NoteSameControls(const MediaSession &session) {
    const auto most = static_cast<std::size_t>(session.streamCount);
    const std::unique_ptr<NumberedControl[]> storage(new (std::nothrow) NumberedControl[most]);
    if (!storage) return; // no stream is like another then
    std::size_t count = 0;
    int32_t number = 0;
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr && count < most; stream = stream->next)
        if (++number; stream->controlUrl) storage[count++] = {stream->controlUrl.get(), number, stream};
    const std::span<NumberedControl> controls(storage.get(), count);
    std::ranges::sort(controls);
    for (std::size_t i = 1, first = 0; i < count; ++i) {
        const bool isLike = controls[i].url == controls[first].url;
        if (isLike) controls[i].stream->further.sameControlAs = controls[first].number;
        if (!isLike) first = i;
    }
}

bool IsTooLong(const DescribedSession &to, std::string_view url) {
    return url.size() > kLongestControlUrl + (to.isOpened ? std::string_view(to.requestUrl).size() : 0);
}

HeapText BaseUrl(const DescribedSession &to) {
    HeapText url = RequestUrl(to);
    if (!url || to.contentBase.empty() || to.contentBase.size() > kLongestControlUrl) return url;
    HeapText joined = JoinUrl(url.get(), to.contentBase);
    return joined && !IsTooLong(to, joined.get()) ? std::move(joined) : std::move(url);
}

} // namespace rtsptap
