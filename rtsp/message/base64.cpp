#include "rtsp/message/base64.h"

#include "platform/archive_names.h"
#include "platform/call_trace.h"
#include "platform/text.h"
#include "rtsptap.h"

#include <cstdlib>

namespace rtsptap {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';
constexpr std::size_t kMaxPadding = 2;

// One group: up to three bytes become four characters, six bits each, padded at the end.
void EncodeGroup(const uint8_t *bytes, std::size_t count, char *characters) {
    uint32_t bits = static_cast<uint32_t>(bytes[0]) << 16;
    if (count > 1) bits |= static_cast<uint32_t>(bytes[1]) << 8;
    if (count > 2) bits |= bytes[2];
    for (std::size_t i = 0; i < 4; i++)
        characters[i] = i <= count ? kAlphabet[bits >> (18 - 6 * i) & 0x3F] : kPadding;
}

std::string_view WithoutPadding(std::string_view text) {
    for (std::size_t i = 0; i < kMaxPadding && text.ends_with(kPadding); i++) text.remove_suffix(1);
    return text;
}

} // namespace

int32_t Base64DecodeBinaryToBuffer(std::string_view text, uint8_t *buffer, int32_t capacity) {
    text = WithoutPadding(text);
    // A last group of one character carries six bits, which is no byte.
    const std::size_t size = text.size() / 4 * 3 + text.size() % 4 * 3 / 4;
    if (buffer == nullptr || capacity < 0 || text.size() % 4 == 1 || size > static_cast<std::size_t>(capacity))
        return RTSP_FAILURE;

    uint32_t bits = 0;
    int bitCount = 0; // bits that wait for their byte to fill
    uint8_t *out = buffer;
    for (const char character : text) {
        const auto value = kAlphabet.find(character);
        if (value == kAlphabet.npos) return RTSP_FAILURE;
        bits = bits << 6 | static_cast<uint32_t>(value);
        bitCount += 6;
        if (bitCount < 8) continue;
        bitCount -= 8;
        *out++ = static_cast<uint8_t>(bits >> bitCount);
    }
    return static_cast<int32_t>(size);
}

} // namespace rtsptap

int Base64Encode(const uint8_t *data, int32_t length, char **encoded) {
    using namespace rtsptap;
    const CallTrace trace(__func__);
    if (encoded != nullptr) *encoded = nullptr;
    if (data == nullptr || length < 0 || encoded == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");

    const std::size_t size = static_cast<std::size_t>(length);
    const std::size_t textLength = (size + 2) / 3 * 4;
    HeapText text(static_cast<char *>(std::malloc(textLength + 1)));
    if (!text) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory Allocation Failed for resultStr\n");

    char *out = text.get();
    for (std::size_t at = 0; at < size; at += 3, out += 4) EncodeGroup(data + at, size - at, out);
    *out = '\0';
    *encoded = text.release();
    return RTSP_SUCCESS;
}

RTSPTAP_WEAK_NAME(Base64Encode)
