#include "rtsp/message/challenge.h"

#include "platform/text.h"

#include <algorithm>
#include <iterator>

namespace rtsptap {

namespace {

// WWW-Authenticate: Digest realm="camera, front", nonce="b5", qop="auth,auth-int", algorithm=SHA-256, Basic
// realm="x"
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kBetween = " \t,";
constexpr std::string_view kTokenEnds = " \t,=\"";

void SkipAll(std::string_view &text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

std::string_view TakeUntil(std::string_view &text, std::string_view ends) {
    const std::string_view token = text.substr(0, text.find_first_of(ends));
    text.remove_prefix(token.size());
    return token;
}

// Behind the opening quote; the closing one is taken, too.
std::string_view TakeQuoted(std::string_view &text, bool &isBroken) {
    std::size_t end = 0;
    while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
    isBroken = isBroken || end >= text.size();
    const std::string_view quoted = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return quoted;
}

struct Parameter {
    std::string_view name;
    std::string_view Challenge::*value;
};

constexpr Parameter kParameters[] = {
    {"realm", &Challenge::realm},         {"nonce", &Challenge::nonce}, {"opaque", &Challenge::opaque},
    {"algorithm", &Challenge::algorithm}, {"qop", &Challenge::qop},     {"stale", &Challenge::stale},
};

// The first of several with one name counts.
void Store(Challenge &challenge, std::string_view name, std::string_view value) {
    for (const Parameter &parameter : kParameters)
        if (EqualIgnoringCase(parameter.name, name) && (challenge.*parameter.value).data() == nullptr)
            challenge.*parameter.value = value;
}

// False, and nothing taken, where another challenge stands, or nothing.
bool TakeParameter(std::string_view &text, Challenge &challenge) {
    std::string_view rest = text;
    SkipAll(rest, kBetween);
    const std::string_view name = TakeUntil(rest, kTokenEnds);
    SkipAll(rest, kBlanks);
    if (name.empty() || !rest.starts_with('=')) return false;
    rest.remove_prefix(1);
    SkipAll(rest, kBlanks);
    const bool isQuoted = rest.starts_with('"');
    if (isQuoted) rest.remove_prefix(1);
    Store(challenge, name, isQuoted ? TakeQuoted(rest, challenge.isBroken) : TakeUntil(rest, kBetween));
    text = rest;
    return true;
}

} // namespace

bool NextChallenge(std::string_view &value, Challenge &challenge) {
    challenge = {};
    while (!value.empty() && challenge.scheme.empty()) {
        SkipAll(value, kBetween);
        challenge.scheme = TakeUntil(value, kTokenEnds);
        if (challenge.scheme.empty() && !value.empty()) value.remove_prefix(1); // a stray quote or equals sign
    }
    if (challenge.scheme.empty()) return false;
    while (TakeParameter(value, challenge)) {
    }
    return true;
}

bool IsStale(const Challenge &challenge) { return EqualIgnoringCase(challenge.stale, "true"); }

std::string_view ChooseQuality(const Challenge &challenge) {
    if (WithoutBlanks(challenge.qop).empty()) return "";
    std::string_view chosen;
    std::string_view rest = challenge.qop;
    for (SkipAll(rest, kBetween); !rest.empty(); SkipAll(rest, kBetween)) {
        const std::string_view offered = TakeUntil(rest, kBetween);
        if (EqualIgnoringCase(offered, "auth")) return "auth";
        if (EqualIgnoringCase(offered, "auth-int")) chosen = "auth-int";
    }
    return chosen;
}

namespace {

constexpr std::string_view kSessionEnding = "-sess";

// From the weakest to the strongest.
constexpr std::string_view kAlgorithms[] = {"MD5-sess",         "MD5",        "SHA-256-sess", "SHA-256",
                                            "SHA-512-256-sess", "SHA-512-256"};

// 0: none that is known.
int StrengthOfAlgorithm(std::string_view name) {
    if (name.empty()) name = "MD5";
    const auto isNamed = [name](std::string_view each) { return EqualIgnoringCase(each, name); };
    const auto *const found = std::ranges::find_if(kAlgorithms, isNamed);
    return found == std::end(kAlgorithms) ? 0 : static_cast<int>(found - kAlgorithms) + 1;
}

// Between quotes it ends where it should: a text that came without them may have one within.
bool FitsBetweenQuotes(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
    return at == text.size() && !HasControlCharacter(text);
}

bool CanBeRepeated(const Challenge &challenge) {
    const std::string_view texts[] = {challenge.realm, challenge.nonce, challenge.opaque};
    return !challenge.isBroken && challenge.nonce.data() != nullptr && challenge.realm.data() != nullptr &&
           std::ranges::all_of(texts, FitsBetweenQuotes);
}

} // namespace

bool IsForSession(const Challenge &challenge) {
    const std::size_t length = std::min(challenge.algorithm.size(), kSessionEnding.size());
    return EqualIgnoringCase(challenge.algorithm.substr(challenge.algorithm.size() - length), kSessionEnding);
}

int StrengthOf(const Challenge &challenge, const Abilities &abilities) {
    if (EqualIgnoringCase(challenge.scheme, "Basic")) return abilities.allowsBasic ? 1 : 0;
    if (!EqualIgnoringCase(challenge.scheme, "Digest") || !CanBeRepeated(challenge)) return 0;
    const int strength = StrengthOfAlgorithm(challenge.algorithm);
    if (!abilities.hasDigests) return strength == StrengthOfAlgorithm("MD5") ? 2 : 0;
    return strength == 0 || ChooseQuality(challenge).data() == nullptr ? 0 : strength + 1;
}

void Unescape(std::string_view quoted, char *text) {
    for (std::size_t at = 0; at < quoted.size(); ++at) {
        const std::string_view pair = quoted.substr(at, 2);
        if (pair == "\\\"" || pair == "\\\\") ++at;
        *text++ = quoted[at];
    }
    *text = '\0';
}

void Escape(std::string_view text, char *quoted) {
    for (const char c : text) {
        if (c == '"' || c == '\\') *quoted++ = '\\';
        *quoted++ = c;
    }
    *quoted = '\0';
}

} // namespace rtsptap
