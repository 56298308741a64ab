#include "session/authorization.h"

#include "base/secrets.h"
#include "base/text.h"
#include "rtsptap.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace tool {
namespace {

struct Algorithm {
    const char *name;
    const EVP_MD *(*digest)();
    bool isForSession;
};

// From the strongest to the weakest; a challenge that names none means MD5.
constexpr Algorithm kAlgorithms[] = {
    {"SHA-512-256", EVP_sha512_256, false},
    {"SHA-512-256-sess", EVP_sha512_256, true},
    {"SHA-256", EVP_sha256, false},
    {"SHA-256-sess", EVP_sha256, true},
    {"MD5", EVP_md5, false},
    {"MD5-sess", EVP_md5, true},
};

// Null when it is none that can be computed.
const Algorithm *AlgorithmOf(const Challenge &challenge) {
    const std::string name = ParameterOf(challenge, "algorithm");
    const auto *const row =
        std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms), [&name](const Algorithm &algorithm) {
            return SameText(name.empty() ? "MD5" : name, algorithm.name);
        });
    return row == std::end(kAlgorithms) ? nullptr : row;
}

// "auth", "auth-int", or empty where the challenge has neither; false when it has others only.
bool ChooseQuality(const Challenge &challenge, std::string &quality) {
    quality.clear();
    const std::string offered = ParameterOf(challenge, "qop");
    for (const std::string &entry : Split(offered, ',')) {
        const std::string name = Trimmed(entry);
        if (SameText(name, "auth")) quality = "auth";
        if (SameText(name, "auth-int") && quality.empty()) quality = "auth-int";
    }
    return !quality.empty() || Trimmed(offered).empty();
}

// 0: cannot be answered. Higher is stronger.
int StrengthOf(const Challenge &challenge) {
    std::string quality;
    if (challenge.scheme == "Basic") return 1;
    if (challenge.scheme != "Digest" || !ChooseQuality(challenge, quality)) return 0;
    const Algorithm *const algorithm = AlgorithmOf(challenge);
    return algorithm == nullptr ? 0 : 1 + static_cast<int>(std::end(kAlgorithms) - algorithm);
}

std::string InHex(const unsigned char *bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += Formatted("%02x", bytes[i]);
    return text;
}

std::string HashOf(const Algorithm &algorithm, const std::string &text) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    const bool good = EVP_Digest(text.data(), text.size(), bytes, &count, algorithm.digest(), nullptr) == 1;
    return good ? InHex(bytes, count) : "";
}

std::string Escaped(const std::string &text) {
    std::string escaped;
    for (const char letter : text)
        escaped += letter == '"' || letter == '\\' ? std::string("\\") + letter : std::string(1, letter);
    return escaped;
}

std::string BasicValue(const Credentials &credentials) {
    const std::string text = credentials.user + ":" + credentials.password;
    char *encoded = nullptr;
    Base64Encode(reinterpret_cast<const uint8_t *>(text.data()), static_cast<int32_t>(text.size()), &encoded);
    const std::unique_ptr<char, void (*)(void *)> owner(encoded, std::free);
    return std::string("Basic ") + (encoded != nullptr ? encoded : "");
}

std::string SchemeText(const Challenge &challenge) {
    const std::string algorithm = ParameterOf(challenge, "algorithm");
    const bool isUsual = challenge.scheme != "Digest" || algorithm.empty() || SameText(algorithm, "MD5");
    return Presentable(isUsual ? challenge.scheme : challenge.scheme + " " + algorithm);
}

} // namespace

bool Authorization::Take(const Reply &reply) {
    std::vector<Challenge> challenges = ChallengesOf(reply);
    const bool hasDigest = std::any_of(challenges.begin(), challenges.end(),
                                       [](const Challenge &offer) { return offer.scheme == "Digest"; });
    if (!challenges.empty()) scheme_ = SchemeText(challenges.front());
    if (hasDigest) std::erase_if(challenges, [](const Challenge &offer) { return offer.scheme == "Basic"; });
    const auto best =
        std::max_element(challenges.begin(), challenges.end(), [](const Challenge &weaker, const Challenge &other) {
            return StrengthOf(weaker) < StrengthOf(other);
        });
    offered_ = best != challenges.end() && StrengthOf(*best) > 0;
    if (!offered_) return false;
    scheme_ = SchemeText(*best);
    if (credentials_.user.empty()) return false;
    const bool isNew = ParameterOf(*best, "nonce") != ParameterOf(chosen_, "nonce");
    stale_ = SameText(ParameterOf(*best, "stale"), "true");
    const bool goesOn = !IsNeeded() || (isNew && (stale_ || accepted_));
    wasAccepted_ = wasAccepted_ || accepted_;
    accepted_ = false;
    uses_ = 0;
    chosen_ = *best;
    return goesOn;
}

std::string Authorization::Value(const std::string &method, const std::string &uri) {
    return chosen_.scheme == "Basic" ? BasicValue(credentials_) : DigestValue(method, uri);
}

std::string Authorization::DigestValue(const std::string &method, const std::string &uri) {
    const Algorithm &algorithm = *AlgorithmOf(chosen_);
    const auto hash = [&algorithm](const std::string &text) { return HashOf(algorithm, text); };
    const std::string realm = ParameterOf(chosen_, "realm");
    const std::string nonce = ParameterOf(chosen_, "nonce");
    std::string quality;
    ChooseQuality(chosen_, quality);
    unsigned char random[16] = {};
    RAND_bytes(random, sizeof random);
    const std::string clientNonce = InHex(random, sizeof random);
    const std::string count = Formatted("%08x", ++uses_);

    std::string user = hash(credentials_.user + ":" + realm + ":" + credentials_.password);
    if (algorithm.isForSession) user = hash(user + ":" + nonce + ":" + clientNonce);
    std::string request = method + ":" + uri;
    if (quality == "auth-int") request += ":" + hash(""); // requests have no body
    const std::string middle = quality.empty() ? "" : count + ":" + clientNonce + ":" + quality + ":";

    std::string value = "Digest username=\"" + Escaped(credentials_.user) + "\", realm=\"" + realm +
                        "\", nonce=\"" + nonce + "\", uri=\"" + uri + "\", response=\"" +
                        hash(user + ":" + nonce + ":" + middle + hash(request)) + "\"";
    if (const std::string name = ParameterOf(chosen_, "algorithm"); !name.empty()) value += ", algorithm=" + name;
    if (const std::string opaque = ParameterOf(chosen_, "opaque"); !opaque.empty())
        value += ", opaque=\"" + opaque + "\"";
    if (!quality.empty()) value += ", qop=" + quality + ", nc=" + count;
    if (!quality.empty() || algorithm.isForSession) value += ", cnonce=\"" + clientNonce + "\"";
    return value;
}

std::string Authorization::Complaint() const {
    if (!offered_ && !scheme_.empty()) return "the server asks for " + scheme_ + ", which is not supported";
    if (credentials_.user.empty()) return "a user name and a password are needed (-u, RTSPTAP_PASSWORD)";
    if (credentials_.password.empty()) return "a password is needed (RTSPTAP_PASSWORD, --password-file)";
    if (stale_) return "the server takes none of the nonces that it gives";
    if (wasAccepted_) return "the server took the password before, and takes it no longer";
    return "user name or password are wrong";
}

} // namespace tool
