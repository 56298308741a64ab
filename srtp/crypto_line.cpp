#include "srtp/keys.h"

#include <cstring>
#include <string_view>
#include <strings.h>

namespace rtsptap_srtp {
// ---- words ----

std::string_view TakeUntil(std::string_view &text, char end) {
    const void *const found = text.empty() ? nullptr : std::memchr(text.data(), end, text.size());
    const std::size_t size =
        found != nullptr ? static_cast<std::size_t>(static_cast<const char *>(found) - text.data()) : text.size();
    const std::string_view word(text.data(), size);
    text.remove_prefix(found != nullptr ? size + 1 : size);
    return word;
}

std::string_view TakeWord(std::string_view &text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    std::size_t size = 0;
    while (size < text.size() && !isBlank(text[size])) ++size;
    const std::string_view word(text.data(), size);
    text.remove_prefix(size);
    return word;
}

namespace {

bool Is(std::string_view text, std::string_view word) {
    return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

} // namespace

bool TakePrefix(std::string_view &text, std::string_view prefix) {
    if (!Is({text.data(), text.size() < prefix.size() ? 0 : prefix.size()}, prefix)) return false;
    text.remove_prefix(prefix.size());
    return true;
}

namespace {

bool ReadNumber(std::string_view text, uint64_t &number) {
    constexpr std::size_t kMostDigits = 18;
    if (text.empty() || text.size() > kMostDigits) return false;
    number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') return false;
        number = number * 10 + static_cast<uint64_t>(digit - '0');
    }
    return true;
}

// ---- suites ----

constexpr Suite kSuites[] = {
    {"AES_CM_128_HMAC_SHA1_80", Cipher::kCounter128, false, 16, 14},
    {"AES_CM_128_HMAC_SHA1_32", Cipher::kCounter128, true, 16, 14},
    {"AES_192_CM_HMAC_SHA1_80", Cipher::kCounter192, false, 24, 14},
    {"AES_192_CM_HMAC_SHA1_32", Cipher::kCounter192, true, 24, 14},
    {"AES_256_CM_HMAC_SHA1_80", Cipher::kCounter256, false, 32, 14},
    {"AES_256_CM_HMAC_SHA1_32", Cipher::kCounter256, true, 32, 14},
    {"AEAD_AES_128_GCM", Cipher::kGalois128, false, 16, 12},
    {"AEAD_AES_256_GCM", Cipher::kGalois256, false, 32, 12},
};

const Suite *FindSuite(std::string_view name) {
    for (const Suite &suite : kSuites)
        if (Is(name, suite.name)) return &suite;
    return nullptr;
}

} // namespace

const Suite *FindSuite(Cipher cipher, bool hasShortTag) {
    for (const Suite &suite : kSuites)
        if (suite.cipher == cipher && suite.hasShortTag == hasShortTag) return &suite;
    return nullptr;
}

// ---- keys ----

namespace {

int ValueOf(char digit) {
    if (digit >= 'A' && digit <= 'Z') return digit - 'A';
    if (digit >= 'a' && digit <= 'z') return digit - 'a' + 26;
    if (digit >= '0' && digit <= '9') return digit - '0' + 52;
    return digit == '+' ? 62 : digit == '/' ? 63 : -1;
}

} // namespace

std::size_t ReadBase64(std::string_view text, uint8_t *bytes, std::size_t room) {
    while (!text.empty() && text.back() == '=') text.remove_suffix(1);
    const std::size_t size = text.size() * 6 / 8;
    if (text.size() % 4 == 1 || size > room) return 0;
    uint32_t bits = 0;
    int count = 0;
    for (const char digit : text) {
        const int value = ValueOf(digit);
        if (value < 0) return 0;
        bits = bits << 6 | static_cast<uint32_t>(value);
        if ((count += 6) < 8) continue;
        *bytes++ = static_cast<uint8_t>(bits >> (count -= 8));
    }
    return size;
}

namespace {

// "2^20" or "1048576": how many packets the key is good for. The sender minds it, and packets beyond it are none
// that a receiver could not read.
bool IsLifetime(std::string_view text) {
    constexpr uint64_t kMostBits = 48;
    uint64_t number = 0;
    if (TakePrefix(text, "2^")) return ReadNumber(text, number) && number <= kMostBits;
    return ReadNumber(text, number) && number > 0;
}

// "1:4": the number 1 in 4 bytes.
bool ReadMki(std::string_view text, MasterKey &key) {
    uint64_t number = 0;
    uint64_t size = 0;
    if (!ReadNumber(TakeUntil(text, ':'), number) || !ReadNumber(text, size)) return false;
    if (size < 1 || size > kLongestMki) return false;
    key.mkiSize = static_cast<uint32_t>(size);
    for (std::size_t at = key.mkiSize; at-- > 0; number >>= 8) key.mki[at] = static_cast<uint8_t>(number);
    return number == 0;
}

bool HasMki(std::string_view text) { return std::memchr(text.data(), ':', text.size()) != nullptr; }

// inline:<base64>[|<lifetime>][|<MKI>:<its size>]
bool ReadKey(std::string_view text, const Suite &suite, MasterKey &key) {
    if (!TakePrefix(text, "inline:")) return false;
    if (ReadBase64(TakeUntil(text, '|'), key.bytes, sizeof key.bytes) !=
        std::size_t{suite.keyBytes} + suite.saltBytes)
        return false;
    if (!text.empty() && !HasMki(text)) return IsLifetime(text);
    std::string_view first = TakeUntil(text, '|');
    if (!text.empty() && !IsLifetime(first)) return false;
    if (!text.empty()) first = text;
    return first.empty() || ReadMki(first, key);
}

// Several have an MKI each, of one size.
bool ReadKeyList(std::string_view text, StreamKeys &keys) {
    while (!text.empty()) {
        if (keys.keyCount == kMostKeys) return false;
        MasterKey &key = keys.keys[keys.keyCount];
        if (!ReadKey(TakeUntil(text, ';'), *keys.suite, key)) return false;
        if (keys.keyCount > 0 && (key.mkiSize == 0 || key.mkiSize != keys.keys[0].mkiSize)) return false;
        ++keys.keyCount;
    }
    return keys.keyCount > 0;
}

// ---- session parameters (RFC 4568, 6.3) ----

// One that begins with '-' may be passed over.
bool ReadParameter(std::string_view text, StreamKeys &keys) {
    uint64_t number = 0;
    if (text.front() == '-') return true;
    if (Is(text, "UNENCRYPTED_SRTP")) return !(keys.encryptsRtp = false);
    if (Is(text, "UNENCRYPTED_SRTCP")) return !(keys.encryptsRtcp = false);
    if (TakePrefix(text, "KDR=")) return ReadNumber(text, number) && number == 0;
    if (!TakePrefix(text, "WSH=") || !ReadNumber(text, number)) return false;
    if (number > keys.window)
        keys.window = static_cast<uint32_t>(number < kLongestWindow ? number : kLongestWindow);
    return true;
}

} // namespace

bool ReadCryptoLine(std::string_view attribute, StreamKeys &keys) {
    uint64_t tag = 0;
    keys = {};
    if (!TakePrefix(attribute, "crypto:") || !ReadNumber(TakeWord(attribute), tag)) return false;
    keys.suite = FindSuite(TakeWord(attribute));
    if (keys.suite == nullptr || !ReadKeyList(TakeWord(attribute), keys)) return false;
    for (std::string_view word = TakeWord(attribute); !word.empty(); word = TakeWord(attribute))
        if (!ReadParameter(word, keys)) return false;
    return true;
}

bool ReadKeys(const char *attribute, StreamKeys &keys) {
    return ReadCryptoLine(attribute, keys) || ReadMikeyLine(attribute, keys);
}

} // namespace rtsptap_srtp
