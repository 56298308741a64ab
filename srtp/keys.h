// The keys of a stream as a line of its description has them (a=crypto, RFC 4568; a=key-mgmt:mikey, RFC 3830 and
// 4567). Knows nothing of who uses them. Nothing here throws or allocates: a program in C does without the C++
// run-time library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap_srtp {

inline constexpr std::size_t kMostKeys = 4;       // of a line; packets say by their MKI which one
inline constexpr std::size_t kLongestKey = 46;    // bytes, salt included
inline constexpr std::size_t kLongestMki = 128;   // bytes (RFC 4568, 6.1)
inline constexpr uint32_t kUsualWindow = 1024;    // packets that may come late and are told from replays
inline constexpr uint32_t kLongestWindow = 16384; // the same

enum class Cipher : uint8_t { kCounter128, kCounter192, kCounter256, kGalois128, kGalois256 };

// RFC 4568, 6.2; RFC 6188, 4; RFC 7714, 14.2.
struct Suite {
    const char *name;
    Cipher cipher;
    bool hasShortTag; // of RTP: 32 bits in place of 80
    uint8_t keyBytes;
    uint8_t saltBytes;
};

struct MasterKey {
    uint8_t bytes[kLongestKey] = {}; // the key and behind it the salt
    uint8_t mki[kLongestMki] = {};
    uint32_t mkiSize = 0; // bytes; the same for all keys of a line; 0: packets have none
};

struct StreamKeys {
    const Suite *suite = nullptr;
    MasterKey keys[kMostKeys];
    uint32_t keyCount = 0;
    uint32_t window = kUsualWindow;
    uint32_t rounds = 0; // how often the sender's numbers have gone round, where the line tells
    bool encryptsRtp = true;
    bool encryptsRtcp = true;
};

// `attribute` as in RTSPTapPacketProtection.open. False when it is not readable, of an unknown suite, or asks for
// what cannot be done; then `keys` holds anything.
bool ReadKeys(const char *attribute, StreamKeys &keys);

// "crypto:1 AES_CM_128_HMAC_SHA1_80 inline:<base64>|2^20|1:4"
bool ReadCryptoLine(std::string_view attribute, StreamKeys &keys);
// "key-mgmt:mikey <base64>", of a message that is not encrypted itself
bool ReadMikeyLine(std::string_view attribute, StreamKeys &keys);

// ---- what both are read by ----

const Suite *FindSuite(Cipher cipher, bool hasShortTag);
// The front of the text up to the character, which goes, too; all of it where it does not have one.
std::string_view TakeUntil(std::string_view &text, char end);
std::string_view TakeWord(std::string_view &text);
bool TakePrefix(std::string_view &text, std::string_view prefix); // whatever the case of its letters
// RFC 4648, 4, with or without padding: how many bytes; 0 when it is none, or of more than `room`.
std::size_t ReadBase64(std::string_view text, uint8_t *bytes, std::size_t room);

} // namespace rtsptap_srtp
