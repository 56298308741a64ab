#include "platform/text.h"

#include "platform/archive_names.h"
#include "platform/printers.h"
#include "rtsptap.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace rtsptap {

namespace {

constexpr std::string_view kLineEnds = "\r\n";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

std::string_view WithoutLeading(std::string_view text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    return text;
}

// Takes an optional sign off the front; true for a minus.
bool TakeMinus(std::string_view &text) {
    const bool minus = text.starts_with('-');
    if (minus || text.starts_with('+')) text.remove_prefix(1);
    return minus;
}

} // namespace

void FreeDeleter::operator()(void *block) const { std::free(block); }

bool NextLine(std::string_view &text, std::string_view &line) {
    text = WithoutLeading(text, kLineEnds);
    if (text.empty()) return false;
    line = text.substr(0, text.find_first_of(kLineEnds));
    text.remove_prefix(line.size());
    return true;
}

bool Until(std::string_view &text, char separator, std::string_view &token) {
    const auto end = text.find(separator);
    if (end == text.npos) return false;
    token = text.substr(0, end);
    text.remove_prefix(end + 1);
    return true;
}

int32_t LeadingNumber(std::string_view text) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    text = WithoutLeading(text, kWhiteSpace);
    const bool minus = TakeMinus(text);
    int64_t number = 0; // counted downwards for a minus, because the smallest number has no positive twin
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
        const int digit = text.front() - '0';
        if (minus)
            number = number < (kMin + digit) / 10 ? kMin : number * 10 - digit;
        else
            number = number > (kMax - digit) / 10 ? kMax : number * 10 + digit;
    }
    return static_cast<int32_t>(number);
}

double LeadingFraction(std::string_view text) {
    text = WithoutLeading(text, kWhiteSpace);
    const bool minus = TakeMinus(text);
    // "inf" and "nan" are words here, and a second sign ends the number before it began.
    if (text.empty() || !(IsDigit(text.front()) || text.front() == '.')) return 0.0;
    double value = 0.0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc{} || !std::isfinite(value)) return 0.0;
    return minus ? -value : value;
}

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool HasControlCharacter(std::string_view text) {
    return std::ranges::any_of(text, [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return LowerCase(left) == LowerCase(right); });
}

std::string_view WithoutBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    text = WithoutLeading(text, kBlanks);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view After(std::string_view text, std::string_view part) {
    const auto at = text.find(part);
    return at == text.npos ? std::string_view() : text.substr(at + part.size());
}

void CopyText(char *field, std::size_t fieldSize, std::string_view text) {
    if (fieldSize == 0) return;
    const std::size_t length = std::min(text.size(), fieldSize - 1);
    std::copy_n(text.data(), length, field);
    std::fill(field + length, field + fieldSize, '\0');
}

HeapText DuplicateText(std::string_view text) {
    HeapText copy(static_cast<char *>(std::malloc(text.size() + 1)));
    if (copy) CopyText(copy.get(), text.size() + 1, text);
    return copy;
}

// ---- base64 (RFC 4648, 4) ----

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

using namespace rtsptap;

int Base64Encode(const uint8_t *data, int32_t length, char **encoded) {
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
