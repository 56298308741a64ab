#include "platform/url.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace rtsptap {
namespace {

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Takes "<scheme>:" off the front; empty, and nothing taken, where none stands.
std::string_view TakeScheme(std::string_view &text) {
    const std::string_view scheme = text.substr(0, text.find(':'));
    const auto mayStand = [](char c) { return IsLetter(c) || IsDigit(c) || c == '+' || c == '-' || c == '.'; };
    if (scheme.size() == text.size() || scheme.empty() || !IsLetter(scheme.front()) ||
        !std::ranges::all_of(scheme, mayStand))
        return {};
    text.remove_prefix(scheme.size() + 1);
    return scheme;
}

// Takes what begins with `mark` off the end; false without one.
bool TakeTail(std::string_view &text, char mark, std::string_view &tail) {
    const std::size_t at = text.find(mark);
    if (at == text.npos) return false;
    tail = text.substr(at + 1);
    text = text.substr(0, at);
    return true;
}

// A text of known greatest size under construction.
class Builder {
public:
    explicit Builder(std::size_t room) : text_(static_cast<char *>(std::malloc(room + 1))) {}

    bool HasRoom() const { return text_ != nullptr; }
    std::size_t Size() const { return size_; }
    void Append(std::string_view text) {
        if (!text.empty()) std::memmove(text_.get() + size_, text.data(), text.size());
        size_ += text.size();
    }
    void AppendTail(bool exists, std::string_view mark, std::string_view text) {
        if (!exists) return;
        Append(mark);
        Append(text);
    }
    std::string_view From(std::size_t start) const { return {text_.get() + start, size_ - start}; }
    void CutTo(std::size_t size) { size_ = size; }
    HeapText Take() {
        text_[size_] = '\0';
        return std::move(text_);
    }

private:
    HeapText text_;
    std::size_t size_ = 0;
};

// Takes the first segment, with the slash before it, off the front.
std::string_view TakeSegment(std::string_view &path) {
    const std::string_view segment = path.substr(0, path.find('/', 1));
    path.remove_prefix(segment.size());
    return segment;
}

// RFC 3986, 5.2.4. The path is the end of the text, from `start` on; what is kept is written over what was read.
void RemoveDotSegments(Builder &url, std::size_t start) {
    std::string_view rest = url.From(start);
    url.CutTo(start);
    while (rest.starts_with("./") || rest.starts_with("../")) rest = After(rest, "/");
    if (rest == "." || rest == "..") return;
    while (!rest.empty()) {
        const std::string_view segment = TakeSegment(rest);
        if (segment != "/." && segment != "/..") {
            url.Append(segment);
            continue;
        }
        if (segment == "/..") url.CutTo(start + std::min(url.From(start).rfind('/'), url.Size() - start));
        if (rest.empty()) rest = "/";
    }
}

// What a relative path stands behind (RFC 3986, 5.2.3).
std::string_view FolderOf(const UrlParts &url) {
    if (url.hasAuthority && url.path.empty()) return "/";
    return url.path.substr(0, url.path.rfind('/') + 1);
}

} // namespace

UrlParts SplitUrl(std::string_view text) {
    UrlParts parts;
    parts.hasFragment = TakeTail(text, '#', parts.fragment);
    parts.hasQuery = TakeTail(text, '?', parts.query);
    parts.scheme = TakeScheme(text);
    parts.hasAuthority = text.starts_with("//");
    if (parts.hasAuthority) {
        text.remove_prefix(2);
        parts.authority = text.substr(0, text.find('/'));
        text.remove_prefix(parts.authority.size());
    }
    parts.path = text;
    return parts;
}

HeapText JoinUrl(std::string_view base, std::string_view reference) {
    const UrlParts from = SplitUrl(base);
    UrlParts to = SplitUrl(reference);
    constexpr std::size_t kMarks = 8; // "://", "/", "?", "#"
    Builder url(base.size() + reference.size() + kMarks);
    if (!url.HasRoom()) return nullptr;

    const bool isWhole = !to.scheme.empty();
    const bool hasOwnPlace = isWhole || to.hasAuthority;
    const bool isSamePath = !hasOwnPlace && to.path.empty();
    if (!isWhole) to.scheme = from.scheme;
    if (!hasOwnPlace) to.authority = from.authority;
    if (!hasOwnPlace) to.hasAuthority = from.hasAuthority;
    if (isSamePath && !to.hasQuery) to.query = from.query;
    if (isSamePath && !to.hasQuery) to.hasQuery = from.hasQuery;

    url.Append(to.scheme);
    if (!to.scheme.empty()) url.Append(":");
    url.AppendTail(to.hasAuthority, "//", to.authority);
    const std::size_t start = url.Size();
    if (!hasOwnPlace && !isSamePath && !to.path.starts_with('/')) url.Append(FolderOf(from));
    url.Append(isSamePath ? from.path : to.path);
    if (!isSamePath) RemoveDotSegments(url, start);
    url.AppendTail(to.hasQuery, "?", to.query);
    url.AppendTail(to.hasFragment, "#", to.fragment);
    return url.Take();
}

} // namespace rtsptap
