#include "platform/url.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
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

namespace {

struct Place {
    std::string_view host;
    std::string_view port;
};

// user:password@host:port, all but the host left out at will; an address of IPv6 has brackets. The port is empty
// where it is the scheme's: a server of rtsps may call itself one of rtsp.
Place PlaceOf(std::string_view url) {
    const UrlParts parts = SplitUrl(url);
    std::string_view authority = parts.authority;
    authority.remove_prefix(authority.rfind('@') + 1);
    const std::size_t bracket = authority.rfind(']');
    const std::size_t colon = authority.find(':', bracket == authority.npos ? 0 : bracket);
    const std::string_view host = authority.substr(0, colon);
    const std::string_view port = authority.substr(std::min(host.size() + 1, authority.size()));
    const bool isDefault = port.empty() || port == (EqualIgnoringCase(parts.scheme, "rtsps") ? "322" : "554");
    return {host, isDefault ? "" : port};
}

} // namespace

bool AreOfOneServer(std::string_view a, std::string_view b) {
    const Place one = PlaceOf(a);
    const Place other = PlaceOf(b);
    if (one.host.empty() || other.host.empty()) return true;
    return EqualIgnoringCase(one.host, other.host) && one.port == other.port;
}

HeapText OnServerOf(std::string_view server, std::string_view url) {
    constexpr std::size_t kMarks = 3; // "://"
    const UrlParts to = SplitUrl(server);
    const UrlParts from = SplitUrl(url);
    Builder moved(server.size() + url.size() + kMarks);
    if (!moved.HasRoom()) return nullptr;
    moved.Append(to.scheme);
    moved.Append("://");
    moved.Append(to.authority);
    moved.Append(from.path);
    moved.AppendTail(from.hasQuery, "?", from.query);
    return moved.Take();
}

// ---- the URL of a server ----

namespace {

bool IsBlankOrControl(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

// The value of a hexadecimal digit; -1 for what is none.
int DigitValue(char c) {
    if (IsDigit(c)) return c - '0';
    const char lower = LowerCase(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// RFC 3986, 2.1. False when the text is cut short, does not fit, or would bring a control character along.
bool Decode(std::string_view text, std::span<char> field) {
    std::size_t size = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char c = text[at];
        if (c == '%') {
            const int high = at + 2 < text.size() ? DigitValue(text[at + 1]) : -1;
            const int low = high >= 0 ? DigitValue(text[at + 2]) : -1;
            if (low < 0) return false;
            c = static_cast<char>(high * 16 + low);
            at += 2;
        }
        if (size + 1 >= field.size() || (IsBlankOrControl(c) && c != ' ')) return false;
        field[size++] = c;
    }
    field[size] = '\0';
    return true;
}

// user[:password]@ at the front: as people write it, the last "@" ends it.
bool TakeUser(std::string_view &authority, ServerUrl &url) {
    const std::size_t at = authority.rfind('@');
    if (at == authority.npos) return true;
    const std::string_view user = authority.substr(0, at);
    authority.remove_prefix(at + 1);
    url.hasUser = true;
    const std::string_view name = user.substr(0, user.find(':'));
    return Decode(name, url.user) && Decode(user.substr(std::min(name.size() + 1, user.size())), url.password);
}

// :port, or nothing.
bool ReadPort(std::string_view text, uint16_t defaultPort, uint16_t &port) {
    port = defaultPort;
    if (text.empty() || text == ":") return true;
    text.remove_prefix(1);
    const bool isNumber = text.size() <= 5 && std::ranges::all_of(text, IsDigit);
    const int32_t number = isNumber ? LeadingNumber(text) : 0;
    port = static_cast<uint16_t>(number);
    return number > 0 && number <= UINT16_MAX;
}

// [address%25zone]; `end` is where the address ends in the text.
bool ReadIpv6(std::string_view bracketed, ServerUrl &url, std::size_t &end) {
    const std::string_view inside = bracketed.substr(1, bracketed.size() - 2);
    const std::string_view address = inside.substr(0, inside.find('%'));
    std::string_view zone = inside.substr(address.size());
    const auto mayStand = [](char c) { return DigitValue(c) >= 0 || c == ':' || c == '.'; };
    if (!Contains(address, ":") || !std::ranges::all_of(address, mayStand)) return false;
    end = 1 + address.size();
    if (zone.starts_with("%25")) zone.remove_prefix(2); // RFC 6874; people write it plainly, too
    if (zone.size() == 1 || Contains(zone, "%25")) return false;
    char *const field = url.host;
    const std::size_t size = address.size() + (zone.empty() ? 0 : zone.size());
    if (size >= sizeof url.host) return false;
    std::ranges::copy(zone, std::ranges::copy(address, field).out);
    if (!zone.empty()) field[address.size()] = '%';
    field[size] = '\0';
    return true;
}

HeapText Concatenate(std::initializer_list<std::string_view> pieces) {
    std::size_t size = 0;
    for (const std::string_view piece : pieces) size += piece.size();
    Builder text(size);
    if (!text.HasRoom()) return nullptr;
    for (const std::string_view piece : pieces) text.Append(piece);
    return text.Take();
}

} // namespace

UrlFault ReadServerUrl(std::string_view text, std::string_view scheme, uint16_t defaultPort, ServerUrl &url) {
    const UrlParts parts = SplitUrl(text);
    if (std::ranges::any_of(text, IsBlankOrControl) || parts.scheme.empty() || !parts.hasAuthority)
        return UrlFault::kUnreadable;
    if (!EqualIgnoringCase(parts.scheme, scheme)) return UrlFault::kOtherScheme;
    if (parts.hasFragment || parts.path.size() > kLongestPath + 1 || parts.query.size() > kLongestQuery)
        return UrlFault::kUnreadable;

    std::string_view authority = parts.authority;
    if (!TakeUser(authority, url)) return UrlFault::kUnreadable;
    const bool isBracketed = authority.starts_with('[');
    const std::size_t hostEnd =
        isBracketed ? authority.find(']') + 1 : std::min(authority.find(':'), authority.size());
    const std::string_view host = authority.substr(0, hostEnd);
    const std::string_view port = authority.substr(hostEnd);
    std::size_t named = host.size(); // bytes of it that a request has
    if (host.empty() || (!port.empty() && port.front() != ':') || !ReadPort(port, defaultPort, url.port) ||
        !(isBracketed ? ReadIpv6(host, url, named) : Decode(host, url.host)))
        return UrlFault::kUnreadable;
    url.request = Concatenate({scheme, "://", host.substr(0, named), isBracketed ? "]" : "", port, parts.path,
                               parts.hasQuery ? "?" : "", parts.query});
    return url.request ? UrlFault::kNone : UrlFault::kNoMemory;
}

} // namespace rtsptap
