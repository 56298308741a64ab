// MIKEY messages (RFC 3830) as RTSP servers describe keys by: one that is neither encrypted nor signed, since the
// connection under it is to do that, with the key that packets are protected by itself (a TEK).
#include "srtp/keys.h"

#include <cstring>

namespace rtsptap_srtp {
namespace {

constexpr std::size_t kLongestMessage = 1024; // bytes

// Past the end everything is 0, and the message is bad.
struct Reader {
    const uint8_t *at = nullptr;
    std::size_t left = 0;
    bool isBad = false;
};

const uint8_t *Take(Reader &reader, std::size_t size) {
    if (size > reader.left) {
        reader.isBad = true;
        reader.left = 0;
        return nullptr;
    }
    const uint8_t *const taken = reader.at;
    reader.at += size;
    reader.left -= size;
    return taken;
}

uint32_t Number(Reader &reader, std::size_t size) {
    const uint8_t *const bytes = Take(reader, size);
    uint32_t number = 0;
    for (std::size_t i = 0; bytes != nullptr && i < size; ++i) number = number << 8 | bytes[i];
    return number;
}

Reader Part(Reader &reader, std::size_t size) {
    const uint8_t *const bytes = Take(reader, size);
    return {bytes, bytes != nullptr ? size : 0};
}

// ---- the policy (RFC 3830, 6.10.1) ----

enum Parameter : uint8_t {
    kEncryption = 0,
    kKeyBytes = 1,
    kAuthentication = 2,
    kDerivationRate = 6,
    kEncryptsRtp = 7,
    kEncryptsRtcp = 8,
    kAuthenticates = 10,
    kTagBytes = 11
};
enum Encryption : uint8_t { kCounterMode = 1, kGaloisMode = 6 };

struct Policy {
    uint32_t values[kTagBytes + 1] = {kCounterMode, 16, 1, 20, 14, 0, 0, 1, 1, 0, 1, 10};
};

// In the order of Parameter; those beyond are of suites that none here is of.
void ReadPolicy(Reader part, Policy &policy) {
    while (part.left >= 2 && !part.isBad) {
        const uint32_t kind = Number(part, 1);
        const uint32_t size = Number(part, 1);
        const uint32_t value = Number(part, size);
        if (kind <= kTagBytes && size <= 4) policy.values[kind] = value;
    }
}

const Suite *SuiteOf(const Policy &policy) {
    constexpr uint32_t kUsualTag = 10;
    constexpr uint32_t kShortTag = 4;
    const uint32_t bytes = policy.values[kKeyBytes];
    if (policy.values[kDerivationRate] != 0 || policy.values[kAuthenticates] == 0) return nullptr;
    if (policy.values[kEncryption] == kGaloisMode)
        return bytes == 16 || bytes == 32 ? FindSuite(bytes == 16 ? Cipher::kGalois128 : Cipher::kGalois256, false)
                                          : nullptr;
    const uint32_t tag = policy.values[kTagBytes];
    const bool isKnown = policy.values[kEncryption] == kCounterMode && policy.values[kAuthentication] == 1;
    if (!isKnown || (tag != kUsualTag && tag != kShortTag)) return nullptr;
    if (bytes != 16 && bytes != 24 && bytes != 32) return nullptr;
    const Cipher cipher =
        bytes == 16 ? Cipher::kCounter128 : (bytes == 24 ? Cipher::kCounter192 : Cipher::kCounter256);
    return FindSuite(cipher, tag == kShortTag);
}

// ---- the key (RFC 3830, 6.2 and 6.13) ----

struct GivenKey {
    uint8_t bytes[kLongestKey] = {}; // and a salt behind it
    std::size_t size = 0;
    MasterKey named; // its MKI alone
};

bool Append(GivenKey &key, Reader &data, std::size_t size) {
    const uint8_t *const bytes = Take(data, size);
    if (bytes == nullptr || size > sizeof key.bytes - key.size) return false;
    std::memcpy(key.bytes + key.size, bytes, size);
    key.size += size;
    return true;
}

// | next | type, kind of validity | its size, 2 | key | size of the salt, 2 | salt | size of the MKI, 1 | MKI |
bool ReadKeyData(Reader data, GivenKey &key) {
    constexpr uint32_t kTek = 2;
    constexpr uint32_t kTekWithSalt = 3;
    (void)Number(data, 1);
    const uint32_t kinds = Number(data, 1);
    if (kinds >> 4 != kTek && kinds >> 4 != kTekWithSalt) return false;
    if (!Append(key, data, Number(data, 2))) return false;
    if (kinds >> 4 == kTekWithSalt && !Append(key, data, Number(data, 2))) return false;
    if ((kinds & 0x0F) != 1) return (kinds & 0x0F) == 0;
    key.named.mkiSize = Number(data, 1);
    const uint8_t *const mki = Take(data, key.named.mkiSize);
    if (mki == nullptr || key.named.mkiSize > sizeof key.named.mki) return false;
    std::memcpy(key.named.mki, mki, key.named.mkiSize);
    return true;
}

// | next | how it is encrypted: not at all | size, 2 | key data | how it is signed | ...
bool ReadKeyTransport(Reader &message, GivenKey &key) {
    constexpr uint32_t kSignatureBytes = 20;
    if (Number(message, 1) != 0) return false;
    const Reader data = Part(message, Number(message, 2));
    if (!ReadKeyData(data, key)) return false;
    if (Number(message, 1) != 0) (void)Take(message, kSignatureBytes);
    return true;
}

// ---- the message (RFC 3830, 6.1) ----

enum Payload : uint8_t {
    kLast = 0,
    kKeyTransport = 1,
    kTime = 5,
    kIdentity = 6,
    kPolicy = 10,
    kRandom = 11,
    kFurther = 21
};

// | version | what it is | next | function | bundle, 4 | sessions | kind of their map | policy, SSRC, 4, ROC, 4 |
// ...
uint32_t ReadHeader(Reader &message, StreamKeys &keys) {
    const bool isKnown = Number(message, 1) == 1 && Number(message, 1) == 0;
    const uint32_t next = Number(message, 1);
    (void)Take(message, 5);
    const uint32_t sessions = Number(message, 1);
    message.isBad = message.isBad || !isKnown || Number(message, 1) != 0;
    for (uint32_t i = 0; i < sessions; ++i) {
        (void)Take(message, 5);
        const uint32_t rounds = Number(message, 4);
        if (i == 0) keys.rounds = rounds;
    }
    return next;
}

bool PassOver(Reader &message, uint32_t payload) {
    constexpr uint32_t kCounter = 2; // of the three kinds of time
    switch (payload) {
    case kTime:
        return Take(message, Number(message, 1) == kCounter ? 4 : 8) != nullptr;
    case kRandom:
        return Take(message, Number(message, 1)) != nullptr;
    case kIdentity:
    case kFurther:
        (void)Number(message, 1);
        return Take(message, Number(message, 2)) != nullptr;
    default:
        return false;
    }
}

bool ReadMessage(Reader message, StreamKeys &keys, Policy &policy, GivenKey &key) {
    uint32_t payload = ReadHeader(message, keys);
    while (payload != kLast && !message.isBad) {
        const uint32_t next = Number(message, 1);
        if (payload == kPolicy) {
            (void)Take(message, 2);
            ReadPolicy(Part(message, Number(message, 2)), policy);
        } else if (!(payload == kKeyTransport ? ReadKeyTransport(message, key) : PassOver(message, payload))) {
            return false;
        }
        payload = next;
    }
    return !message.isBad;
}

bool UseKey(const Policy &policy, const GivenKey &key, StreamKeys &keys) {
    keys.suite = SuiteOf(policy);
    if (keys.suite == nullptr || key.size != std::size_t{keys.suite->keyBytes} + keys.suite->saltBytes)
        return false;
    keys.keys[0] = key.named;
    std::memcpy(keys.keys[0].bytes, key.bytes, key.size);
    keys.keyCount = 1;
    keys.encryptsRtp = policy.values[kEncryptsRtp] != 0;
    keys.encryptsRtcp = policy.values[kEncryptsRtcp] != 0;
    return true;
}

} // namespace

bool ReadMikeyLine(std::string_view attribute, StreamKeys &keys) {
    uint8_t bytes[kLongestMessage];
    Policy policy;
    GivenKey key;
    keys = {};
    if (!TakePrefix(attribute, "key-mgmt:mikey ")) return false;
    const std::size_t size = ReadBase64(TakeWord(attribute), bytes, sizeof bytes);
    const bool isRead = ReadMessage({bytes, size}, keys, policy, key);
    explicit_bzero(bytes, sizeof bytes);
    return isRead && UseKey(policy, key, keys);
}

} // namespace rtsptap_srtp
