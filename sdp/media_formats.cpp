#include "sdp/media_formats.h"

#include "platform/text.h"

#include <algorithm>
#include <utility>

namespace rtsptap {
namespace {

constexpr StaticFormat kStaticFormats[] = {
    // RFC 3551, tables 4 and 5
    {0, "PCMU", 8000, 1},   {3, "GSM", 8000, 1},    {4, "G723", 8000, 1},   {5, "DVI4", 8000, 1},
    {6, "DVI4", 16000, 1},  {7, "LPC", 8000, 1},    {8, "PCMA", 8000, 1},   {9, "G722", 8000, 1},
    {10, "L16", 44100, 2},  {11, "L16", 44100, 1},  {12, "QCELP", 8000, 1}, {13, "CN", 8000, 1},
    {14, "MPA", 90000, 0},  {15, "G728", 8000, 1},  {16, "DVI4", 11025, 1}, {17, "DVI4", 22050, 1},
    {18, "G729", 8000, 1},  {25, "CelB", 90000, 0}, {26, "JPEG", 90000, 0}, {28, "nv", 90000, 0},
    {31, "H261", 90000, 0}, {32, "MPV", 90000, 0},  {33, "MP2T", 90000, 0}, {34, "H263", 90000, 0},
};

// Takes the next word off the front; empty at the end.
std::string_view NextWord(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return word;
}

// -1 when the word is no payload type.
int32_t PayloadType(std::string_view word) {
    constexpr std::size_t kDigits = 3;
    if (word.empty() || word.size() > kDigits || !std::ranges::all_of(word, IsDigit)) return -1;
    const int32_t type = LeadingNumber(word);
    return type < 128 ? type : -1;
}

} // namespace

namespace {

// Some devices leave the port out: the profile is the first word that is no number.
std::string_view TakeProfile(std::string_view &mediaLine) {
    (void)NextWord(mediaLine);
    std::string_view profile = NextWord(mediaLine);
    while (!profile.empty() && IsDigit(profile.front())) profile = NextWord(mediaLine);
    return profile;
}

} // namespace

std::string_view ProfileOf(std::string_view mediaLine) { return TakeProfile(mediaLine); }

// "RTP/SAVP", "RTP/SAVPF", and before them what carries it: "UDP/TLS/RTP/SAVP".
bool IsProtected(std::string_view profile) {
    constexpr std::string_view kProtected = "RTP/SAVP";
    for (std::size_t at = 0; at + kProtected.size() <= profile.size(); ++at)
        if (EqualIgnoringCase(profile.substr(at, kProtected.size()), kProtected)) return true;
    return false;
}

MediaFormats::MediaFormats(std::string_view mediaLine) {
    (void)TakeProfile(mediaLine);
    for (std::string_view word = NextWord(mediaLine); !word.empty(); word = NextWord(mediaLine))
        if (const int32_t type = PayloadType(word); type >= 0 && !Has(type))
            types_[count_++] = static_cast<uint8_t>(type);
}

bool MediaFormats::Has(int32_t payloadType) const {
    return std::ranges::find(Types(), payloadType) != Types().end();
}

const StaticFormat *FindStaticFormat(int32_t payloadType) {
    const auto *const row = std::ranges::find(kStaticFormats, payloadType, &StaticFormat::payloadType);
    return row == std::end(kStaticFormats) ? nullptr : row;
}

} // namespace rtsptap
