#include "rtsp/message/credentials.h"

#include "dialect/dialect.h"
#include "platform/system.h"
#include "platform/url.h"
#include "rtsp/message/authentication.h"
#include "rtsp/message/response.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sys/random.h>
#include <utility>

// The host may have it, or not: then there are the digests of GenerateDigestResponse.
extern "C" __attribute__((weak)) int RTSPTapComputeDigest(const RTSPTapDigest *digest, char *response,
                                                          uint32_t size);

namespace rtsptap {

void WipeText(char *text) {
    if (text != nullptr) explicit_bzero(text, std::strlen(text));
    std::free(text);
}

namespace {

void ForgetChallenge(Credentials &credentials) {
    std::free(std::exchange(credentials.header, nullptr));
    std::free(std::exchange(credentials.server, nullptr));
    credentials.challenge = {};
    credentials.uses = 0;
}

} // namespace

void StoreCredentials(Credentials &credentials, std::string_view user, std::string_view password) {
    ForgetCredentials(credentials);
    const ScopedLock lock(credentials.lock);
    CopyText(credentials.user, user);
    CopyText(credentials.password, password);
    credentials.areSet = true;
}

void ForgetCredentials(Credentials &credentials) {
    const ScopedLock lock(credentials.lock);
    credentials.areSet = false;
    explicit_bzero(credentials.user, sizeof credentials.user);
    explicit_bzero(credentials.password, sizeof credentials.password);
    credentials.asked[0] = '\0';
    credentials.hashesRawRealm = false;
    ForgetChallenge(credentials);
}

// ---- the challenge ----

namespace {

// The challenges of every WWW-Authenticate header, one after the other.
template <typename Look> void ForEachChallenge(const ResponseMsg &response, Look look) {
    for (uint32_t i = 0; i < response.headerCount; ++i) {
        const RTSPHeaderStruct &header = response.headers[i];
        if (header.headerValue == nullptr || !EqualIgnoringCase(header.headerName, "WWW-Authenticate")) continue;
        std::string_view rest = header.headerValue;
        for (Challenge challenge; NextChallenge(rest, challenge);) look(challenge);
    }
}

// What a 401 offers, as far as we are concerned.
struct Offers {
    Challenge best;
    int strength = 0;
    Challenge first;
    bool hasBasic = false;
    bool hasDigest = false;
};

Offers ReadOffers(const Credentials &credentials, const ResponseMsg &response) {
    Offers offers;
    ForEachChallenge(response, [&offers](const Challenge &challenge) {
        if (offers.first.scheme.empty()) offers.first = challenge;
        offers.hasBasic = offers.hasBasic || EqualIgnoringCase(challenge.scheme, "Basic");
        offers.hasDigest = offers.hasDigest || EqualIgnoringCase(challenge.scheme, "Digest");
    });
    const bool nameFitsBasic = std::strchr(credentials.user, ':') == nullptr; // RFC 7617, 2
    const Abilities abilities{.hasDigests = RTSPTapComputeDigest != nullptr,
                              .allowsBasic = credentials.allowsBasic && !offers.hasDigest && nameFitsBasic};
    ForEachChallenge(response, [&offers, &abilities](const Challenge &challenge) {
        const int strength = StrengthOf(challenge, abilities);
        if (strength <= offers.strength) return;
        offers.strength = strength;
        offers.best = challenge;
    });
    return offers;
}

// A view into `from` as one into its copy; what was not there stays so.
std::string_view Moved(std::string_view text, const char *from, const char *to) {
    return text.data() == nullptr ? text : std::string_view(to + (text.data() - from), text.size());
}

const char *HeaderOf(const ResponseMsg &response, const Challenge &challenge) {
    for (uint32_t i = 0; i < response.headerCount; ++i) {
        const char *const value = response.headers[i].headerValue;
        if (value != nullptr && challenge.scheme.data() >= value &&
            challenge.scheme.data() < value + std::strlen(value))
            return value;
    }
    return nullptr;
}

void MakeClientNonce(char (&text)[33]) {
    uint8_t random[16] = {};
    for (std::size_t have = 0; have < sizeof random;) {
        const ssize_t count = getrandom(random + have, sizeof random - have, 0);
        if (count > 0) have += static_cast<std::size_t>(count);
    }
    char *end = text;
    for (const uint8_t byte : random)
        for (const int digit : {byte >> 4, byte & 0x0F}) *end++ = "0123456789abcdef"[digit];
    *end = '\0';
}

// From here on requests answer it. False when memory is short.
bool KeepChallenge(Credentials &credentials, const Refusal &refusal, const Challenge &challenge) {
    const char *const from = HeaderOf(refusal.response, challenge);
    HeapText header = DuplicateText(from != nullptr ? from : "");
    HeapText server = DuplicateText(refusal.server);
    if (from == nullptr || !header || !server) return false;
    ForgetChallenge(credentials);
    credentials.challenge = challenge;
    for (std::string_view Challenge::*const field :
         {&Challenge::scheme, &Challenge::realm, &Challenge::nonce, &Challenge::opaque, &Challenge::algorithm,
          &Challenge::qop, &Challenge::stale})
        credentials.challenge.*field = Moved(challenge.*field, from, header.get());
    credentials.header = header.release();
    credentials.server = server.release();
    MakeClientNonce(credentials.clientNonce);
    return true;
}

// The first 401 is worth an answer, unless it is one to the very same; a further one where the nonce was stale.
bool IsWorthAnswering(const Credentials &credentials, const Refusal &refusal, const Challenge &challenge) {
    constexpr int kMostAnswers = 2;
    if (refusal.answers >= kMostAnswers) return false;
    const bool isNew = credentials.header == nullptr || challenge.nonce != credentials.challenge.nonce;
    if (refusal.answers == 0) return !refusal.carriedAnswer || isNew || IsStale(challenge);
    return IsStale(challenge);
}

// Whether another answer can be made of the same challenge.
bool HashesOtherwise(Credentials &credentials, const Refusal &refusal, const Challenge &challenge) {
    const bool mayHelp = refusal.answers == 1 && !credentials.hashesRawRealm && Contains(challenge.realm, "\\") &&
                         refusal.dialect.Permits(Rule::kRawRealm);
    credentials.hashesRawRealm = mayHelp;
    return mayHelp;
}

} // namespace

Verdict TakeChallenge(Credentials &credentials, const Refusal &refusal) {
    const ScopedLock lock(credentials.lock);
    const Offers offers = ReadOffers(credentials, refusal.response);
    const bool isWorthIt = offers.strength > 0 && (IsWorthAnswering(credentials, refusal, offers.best) ||
                                                   HashesOtherwise(credentials, refusal, offers.best));
    if (isWorthIt && KeepChallenge(credentials, refusal, offers.best)) return Verdict::kAnswer;
    ForgetChallenge(credentials);
    if (offers.strength > 0 || offers.first.scheme.empty()) return Verdict::kRefused;
    return offers.hasBasic && !offers.hasDigest ? Verdict::kBasicNotAllowed : Verdict::kUnknown;
}

// "Digest SHA-256", as far as it fits; without what a terminal would obey.
void NoteWhatIsAsked(Credentials &credentials, const ResponseMsg &response) {
    const ScopedLock lock(credentials.lock);
    const Offers offers = ReadOffers(credentials, response);
    const Challenge &is = offers.strength > 0 ? offers.best : offers.first;
    const int schemeLength = static_cast<int>(std::min<std::size_t>(is.scheme.size(), sizeof credentials.asked));
    const int algorithmLength =
        static_cast<int>(std::min<std::size_t>(is.algorithm.size(), sizeof credentials.asked));
    const char *const blank = algorithmLength > 0 ? " " : "";
    std::snprintf(credentials.asked, sizeof credentials.asked, "%.*s%s%.*s", schemeLength, is.scheme.data(), blank,
                  algorithmLength, is.algorithm.data());
    for (char &c : credentials.asked)
        if (c != '\0' && HasControlCharacter({&c, 1})) c = '?';
}

// ---- the answer ----

namespace {

HeapText Room(std::size_t bytes) { return HeapText(static_cast<char *>(std::calloc(bytes, 1))); }

HeapText Joined(std::initializer_list<std::string_view> pieces) {
    std::size_t size = 1;
    for (const std::string_view piece : pieces) size += piece.size();
    HeapText text = Room(size);
    char *end = text.get();
    for (const std::string_view piece : pieces)
        if (text) end = std::copy(piece.begin(), piece.end(), end);
    return text;
}

HeapText Unescaped(std::string_view quoted) {
    HeapText text = Room(quoted.size() + 1);
    if (text) Unescape(quoted, text.get());
    return text;
}

HeapText Escaped(std::string_view text) {
    HeapText quoted = Room(2 * text.size() + 1);
    if (quoted) Escape(text, quoted.get());
    return quoted;
}

HeapText BasicValue(const Credentials &credentials) {
    char both[2 * kCredentialBytes] = {};
    const int length = std::snprintf(both, sizeof both, "%s:%s", credentials.user, credentials.password);
    char *encoded = nullptr;
    Base64Encode(reinterpret_cast<const uint8_t *>(both), length, &encoded);
    explicit_bzero(both, sizeof both);
    HeapText value = encoded != nullptr ? Joined({"Basic ", encoded}) : nullptr;
    WipeText(encoded);
    return value;
}

// The response to the challenge; empty when it could not be computed.
struct Response {
    char text[kDigestResponseBytes] = {};
};

Response Compute(const RTSPTapDigest &of) {
    Response response;
    if (RTSPTapComputeDigest != nullptr)
        RTSPTapComputeDigest(&of, response.text, sizeof response.text);
    else
        GenerateDigestResponse(of.nonce, nullptr, of.username, of.realm, of.password, "md5", "", of.method, nullptr,
                               of.uri, response.text);
    response.text[sizeof response.text - 1] = '\0'; // the host's function wrote it
    return response;
}

HeapText DigestValue(Credentials &credentials, const Authorized &request) {
    const Challenge &challenge = credentials.challenge;
    const bool hasDigests = RTSPTapComputeDigest != nullptr;
    const std::string_view quality = hasDigests ? ChooseQuality(challenge) : "";
    const HeapText algorithm = DuplicateText(challenge.algorithm);
    const HeapText realm = credentials.hashesRawRealm ? DuplicateText(challenge.realm) : Unescaped(challenge.realm);
    const HeapText nonce = Unescaped(challenge.nonce);
    const HeapText user = Escaped(credentials.user);
    const HeapText uri = Escaped(request.uri);
    if (!algorithm || !realm || !nonce || !user || !uri) return nullptr;
    char count[9];
    std::snprintf(count, sizeof count, "%08x", ++credentials.uses);
    const RTSPTapDigest of = {sizeof of,
                              algorithm.get(),
                              credentials.user,
                              realm.get(),
                              credentials.password,
                              nonce.get(),
                              credentials.clientNonce,
                              count,
                              quality.data(),
                              request.method,
                              request.uri,
                              request.body};
    const Response response = Compute(of);
    if (response.text[0] == '\0') return nullptr;
    const bool namesAlgorithm = !challenge.algorithm.empty();
    const bool namesNonce = !quality.empty() || (hasDigests && IsForSession(challenge));
    const auto onlyIf = [](bool is, std::string_view text) { return is ? text : std::string_view(); };
    return Joined({"Digest username=\"",
                   user.get(),
                   "\", realm=\"",
                   challenge.realm,
                   "\", nonce=\"",
                   challenge.nonce,
                   "\", uri=\"",
                   uri.get(),
                   "\", response=\"",
                   response.text,
                   "\"",
                   onlyIf(namesAlgorithm, ", algorithm="),
                   challenge.algorithm,
                   onlyIf(challenge.opaque.data() != nullptr, ", opaque=\""),
                   challenge.opaque,
                   onlyIf(challenge.opaque.data() != nullptr, "\""),
                   onlyIf(!quality.empty(), ", qop="),
                   quality,
                   onlyIf(!quality.empty(), ", nc="),
                   onlyIf(!quality.empty(), count),
                   onlyIf(namesNonce, ", cnonce=\""),
                   onlyIf(namesNonce, credentials.clientNonce),
                   onlyIf(namesNonce, "\"")});
}

} // namespace

bool IsAnswering(Credentials &credentials, const char *server) {
    const ScopedLock lock(credentials.lock);
    return credentials.header != nullptr && AreOfOneServer(credentials.server, server);
}

HeapText AuthorizationFor(Credentials &credentials, const Authorized &request) {
    if (!IsAnswering(credentials, request.server) || !AreOfOneServer(request.uri, request.server)) return nullptr;
    const ScopedLock lock(credentials.lock);
    if (credentials.header == nullptr) return nullptr; // forgotten meanwhile
    const bool isBasic = EqualIgnoringCase(credentials.challenge.scheme, "Basic");
    return isBasic ? BasicValue(credentials) : DigestValue(credentials, request);
}

} // namespace rtsptap
