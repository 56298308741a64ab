#include "sdp/codec_config.h"

#include "platform/printers.h"
#include "platform/text.h"
#include "rtp/codec_bits.h"
#include "rtp/media_session.h"
#include "rtp/stream.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <utility>

namespace rtsptap {

namespace {

constexpr std::string_view kAroundWords = " \t\"";
constexpr std::string_view kBeforeName = " \t;";

} // namespace

std::string_view FmtpParameter(std::string_view fmtp, std::string_view mark) {
    std::string_view inside; // what follows the first mark within another name
    for (std::size_t at = 0; at + mark.size() <= fmtp.size(); ++at) {
        if (!EqualIgnoringCase(fmtp.substr(at, mark.size()), mark)) continue;
        std::string_view rest = fmtp.substr(at + mark.size());
        rest = rest.substr(0, rest.find(';'));
        if (at == 0 || Contains(kBeforeName, fmtp.substr(at - 1, 1))) return rest;
        if (inside.data() == nullptr) inside = rest;
    }
    return inside;
}

std::string_view FirstWord(std::string_view text) {
    const std::size_t start = text.find_first_not_of(kAroundWords);
    if (start == text.npos) return {};
    return text.substr(start, text.find_first_of(kAroundWords, start) - start);
}

namespace {

// Takes what stands before the next ";", or the rest, off the front: a name and a value, without blanks and quotes.
struct Parameter {
    explicit Parameter(std::string_view &fmtp) {
        std::string_view text;
        if (!Until(fmtp, ';', text)) text = std::exchange(fmtp, {});
        const std::size_t equals = std::min(text.find('='), text.size());
        name = WithoutBlanks(text.substr(0, equals));
        value = FirstWord(text.substr(std::min(equals + 1, text.size())));
        if (EqualIgnoringCase(value.substr(0, 2), "0x")) value.remove_prefix(2);
    }
    std::string_view name;
    std::string_view value;
};

char InName(char letter) { return letter == '_' ? '-' : letter; }

// Of the alphabet for base64 in URLs (RFC 4648, 5) to the other one.
char InValue(char letter) { return letter == '-' ? '+' : letter == '_' ? '/' : letter; }

// Items between commas, without padding and without a last digit that carries no byte.
char *AppendItems(std::string_view items, char *end) {
    while (!items.empty()) {
        std::string_view item;
        const bool isLast = !Until(items, ',', item);
        if (isLast) item = std::exchange(items, {});
        item = item.substr(0, item.find_last_not_of('=') + 1);
        if (item.size() % 4 == 1) item.remove_suffix(1);
        end = std::ranges::transform(item, end, InValue).out;
        if (!isLast) *end++ = ',';
    }
    return end;
}

} // namespace

HeapText PlainSpelling(std::string_view fmtp) {
    HeapText plain(static_cast<char *>(malloc(fmtp.size() + 2))); // with a ";" behind the last one
    if (!plain) return plain;
    char *end = plain.get();
    while (!fmtp.empty()) {
        const Parameter parameter(fmtp);
        if (parameter.value.empty()) continue;
        end = std::ranges::transform(parameter.name, end, InName).out;
        *end++ = '=';
        end = Contains(parameter.name, "sprop") ? AppendItems(parameter.value, end)
                                                : std::ranges::copy(parameter.value, end).out;
        *end++ = ';';
    }
    *end = '\0';
    return plain;
}

// ---- parameter sets ----

namespace {

struct ParameterSet {
    std::unique_ptr<uint8_t[], FreeDeleter> bytes;
    int32_t size = 0; // negative when the text was not base64
};

// Some devices send the start code of a byte stream (H.264, annex B) along: zeros, then 1.
void DropStartCode(ParameterSet &set) {
    if (set.size <= 0) return;
    const std::span<uint8_t> bytes(set.bytes.get(), static_cast<std::size_t>(set.size));
    const auto unit = std::ranges::find_if(bytes, [](uint8_t byte) { return byte != 0; });
    if (unit - bytes.begin() < 2 || unit == bytes.end() || *unit != 1) return;
    set.size = static_cast<int32_t>(std::ranges::copy(unit + 1, bytes.end(), bytes.begin()).out - bytes.begin());
}

ParameterSet DecodeSet(std::string_view base64) {
    const std::size_t capacity = base64.size() / 4 * 3 + 3;
    ParameterSet set;
    set.bytes.reset(static_cast<uint8_t *>(malloc(capacity)));
    if (set.bytes) set.size = Base64DecodeBinaryToBuffer(base64, set.bytes.get(), static_cast<int32_t>(capacity));
    DropStartCode(set);
    return set;
}

// Which sets there are, by their NAL units' type, and where they go.
struct SetPlace {
    int32_t nalType;
    uint8_t *&field;
    int32_t &fieldSize;
    bool found = false;
};

void Store(ParameterSet set, SetPlace &place) {
    free(place.field);
    place.field = set.bytes.release();
    place.fieldSize = set.size;
    place.found = true;
}

// Where sets of a codec go, and the stream whose they are.
struct SetPlaces {
    const RTSPStreamInfo &stream;
    int32_t (*nalType)(uint8_t first);
    std::span<SetPlace> places;
};

// The first set of each kind goes to its place.
void Collect(const SetPlaces &to, ParameterSet set) {
    if (set.size <= 0) return;
    const auto place = std::ranges::find(to.places, to.nalType(set.bytes[0]), &SetPlace::nalType);
    if (place != to.places.end() && !place->found) Store(std::move(set), *place);
}

// A byte stream where one set belongs.
void CollectUnits(const SetPlaces &to, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::span<const uint8_t> unit = NextNalUnit(bytes);
        ParameterSet set;
        if (!unit.empty()) set.bytes.reset(static_cast<uint8_t *>(malloc(unit.size())));
        if (!set.bytes) continue;
        std::ranges::copy(unit, set.bytes.get());
        set.size = static_cast<int32_t>(unit.size());
        Collect(to, std::move(set));
    }
}

void CollectSets(std::string_view sets, const SetPlaces &to) {
    const MediaSession *const session = to.stream.session;
    while (!sets.empty()) {
        std::string_view text;
        if (!Until(sets, ',', text)) text = std::exchange(sets, {});
        ParameterSet set = DecodeSet(FirstWord(text));
        const std::span<const uint8_t> bytes(set.bytes.get(), static_cast<std::size_t>(std::max(set.size, 0)));
        const bool isOne = FindStartCode(bytes) == bytes.size();
        if (!isOne && session != nullptr && session->dialect.Permits(Rule::kUnitsInOne))
            CollectUnits(to, bytes);
        else
            Collect(to, std::move(set));
    }
}

// The bytes as " 67 42 ..."; the printers would cut a longer line.
constexpr int32_t kShownBytes = 256;
struct HexText {
    char text[3 * kShownBytes + 1] = {};
};

HexText ToHex(const uint8_t *bytes, int32_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    HexText hex;
    char *end = hex.text;
    for (const uint8_t byte : std::span(bytes, static_cast<std::size_t>(std::min(size, kShownBytes)))) {
        *end++ = ' ';
        *end++ = kDigits[byte >> 4];
        *end++ = kDigits[byte & 0xF];
    }
    return hex;
}

} // namespace

int32_t ExtractSPSPPS(RTSPStreamInfo *stream) {
    const CallTrace trace(__func__);
    if (stream == nullptr || stream->description.fmtp == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    constexpr int32_t kSequenceSet = 7;
    constexpr int32_t kPictureSet = 8;
    RTSPStreamDescription &description = stream->description;
    SetPlace places[] = {{kSequenceSet, description.sps, description.spsSize},
                         {kPictureSet, description.pps, description.ppsSize}};
    CollectSets(FmtpParameter(description.fmtp, "sprop-parameter-sets="), {*stream, NalTypeOfH264, places});
    const bool spsFound = places[0].found;
    const bool ppsFound = places[1].found;
    if (spsFound)
        RtpRtspInfoPrint("Decoded SPS Size : %d \nDecoded SPS :%s\n", description.spsSize,
                         ToHex(description.sps, description.spsSize).text);
    if (ppsFound)
        RtpRtspInfoPrint("Decoded PPS Size : %d \nDecoded PPS :%s\n", description.ppsSize,
                         ToHex(description.pps, description.ppsSize).text);
    return spsFound && ppsFound ? RTSP_SUCCESS : RTSP_FAILURE;
}

void ExtractH265ParameterSets(RTSPStreamInfo &stream) {
    constexpr int32_t kVideoSet = 32;
    constexpr int32_t kSequenceSet = 33;
    constexpr int32_t kPictureSet = 34;
    RTSPStreamDescription &description = stream.description;
    SetPlace places[] = {{kVideoSet, stream.further.vps, stream.further.vpsSize},
                         {kSequenceSet, description.sps, description.spsSize},
                         {kPictureSet, description.pps, description.ppsSize}};
    for (const char *const name : {"sprop-vps=", "sprop-sps=", "sprop-pps=", "sprop-parameter-sets="})
        CollectSets(FmtpParameter(description.fmtp, name), {stream, NalTypeOfH265, places});
}

// ---- MPEG-4 ----

namespace {

// -1 when the character is no hexadecimal digit.
int32_t HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

} // namespace

int32_t ConvertAsciiToHex(std::string_view text, uint8_t *bytes, int32_t capacity) {
    if (text.size() % 2 != 0 || text.size() / 2 > static_cast<std::size_t>(capacity)) return RTSP_FAILURE;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int32_t high = HexDigit(text[at]);
        const int32_t low = HexDigit(text[at + 1]);
        if (high < 0 || low < 0) return RTSP_FAILURE;
        bytes[at / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return static_cast<int32_t>(text.size() / 2);
}

void ExtractConfigBytes(RTSPStreamInfo &stream) {
    const std::string_view text = FirstWord(FmtpParameter(stream.description.fmtp, "config="));
    const auto capacity = static_cast<int32_t>(text.size() / 2);
    std::unique_ptr<uint8_t[], FreeDeleter> bytes(static_cast<uint8_t *>(malloc(text.size() / 2 + 1)));
    const int32_t size = bytes ? ConvertAsciiToHex(text, bytes.get(), capacity) : 0;
    if (size <= 0) return;
    free(stream.further.config);
    stream.further.config = bytes.release();
    stream.further.configSize = size;
}

int32_t ExtractAACConfig(RTSPStreamInfo *stream) {
    const CallTrace trace(__func__);
    if (stream == nullptr || stream->description.fmtp == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    RTSPStreamDescription &description = stream->description;
    const std::string_view text = FirstWord(FmtpParameter(description.fmtp, "config="));
    const auto capacity = static_cast<int32_t>(text.size() / 2);
    if (capacity == 0) return RTSP_FAILURE;

    std::unique_ptr<uint8_t[], FreeDeleter> bytes(static_cast<uint8_t *>(malloc(text.size() / 2)));
    if (!bytes) return trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    const int32_t size = ConvertAsciiToHex(text, bytes.get(), capacity);
    if (size < 0) return RTSP_FAILURE;
    AudioConfig config;
    BitReader bits({bytes.get(), static_cast<std::size_t>(size)});
    if (!TakeAudioConfig(bits, config)) return RTSP_FAILURE;

    free(description.aacConfig);
    description.aacConfig = bytes.release();
    description.aacConfigSize = size;
    description.aacObjectType = config.objectType;
    description.aacSamplingRate = config.samplingRate;
    description.aacChannels = config.channels;
    RtpRtspInfoPrint("\n AAC Config Size and Data :: %d , %.*s \n", size, static_cast<int>(text.size()),
                     text.data());
    return RTSP_SUCCESS;
}

} // namespace rtsptap
