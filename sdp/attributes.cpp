#include "platform/text.h"
#include "rtp/codec_table.h"
#include "rtp/media_session.h"
#include "sdp/codec_config.h"
#include "sdp/control_url.h"
#include "sdp/reading.h"

#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <iterator>
#include <locale.h>
#include <optional>
#include <span>
#include <utility>

namespace rtsptap {
namespace {

// ---- attributes of a media section ----

// What a clock rate that is left out must be; 0 when it may be any.
int32_t UsualClockRate(const RTSPStreamDescription &description) {
    constexpr int32_t kVideoClockRate = 90000;
    if (description.isVideo != 0) return kVideoClockRate;
    const StaticFormat *const known = FindStaticFormat(description.payloadNumber);
    return known != nullptr ? known->clockRate : 0;
}

// <clock rate>[/<channels>], the channels of audio only
int32_t ReadClockAndChannels(SdpReading &reading, std::string_view text) {
    RTSPStreamDescription &description = reading.stream->description;
    description.clockRate = LeadingNumber(text);
    const bool isRate = description.clockRate > 0;
    if (!isRate && reading.dialect.Permits(Rule::kNoClockRate))
        description.clockRate = UsualClockRate(description);
    else if (description.clockRate == 0)
        return reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber);

    std::string_view clockRate;
    if (description.isVideo != 0 || !Until(text, '/', clockRate)) return RTSP_SUCCESS;
    description.channels = LeadingNumber(text);
    if (description.channels != 0 || reading.dialect.Permits(Rule::kNoClockRate)) return RTSP_SUCCESS;
    return reading.trace.Fail(RTSP_BAD_NUMBER, kNotANumber);
}

const Codec *FindCodecOf(const Dialect &dialect, std::string_view name) {
    if (const Codec *const codec = FindCodecByName(name); codec != nullptr) return codec;
    const Codec *codec = FindCodecInAnyCase(name);
    if (codec != nullptr && dialect.Permits(Rule::kNameInAnyCase)) return codec;
    codec = FindFurtherCodec(name);
    return codec != nullptr && dialect.Permits(Rule::kFurtherCodec) ? codec : nullptr;
}

// A name without a rule leaves an earlier rtpmap's codec in force. Packets are asked for by codec, from any
// thread, so it is published when the rest of the map has been read.
void TakeCodecType(RTSPStreamInfo &stream, const Dialect &dialect) {
    const Codec *const codec = FindCodecOf(dialect, stream.description.encodingName);
    if (codec == nullptr) return;
    stream.description.codecType = codec->type;
    stream.codecType.store(codec->type, std::memory_order_release);
}

// <encoding name>/
bool TakeEncodingName(const SdpReading &reading, std::string_view &text, std::string_view &name) {
    if (Until(text, '/', name)) return true;
    name = std::exchange(text, {});
    return !name.empty() && reading.dialect.Permits(Rule::kNoClockRate);
}

// a=rtpmap:<payload number> <encoding name>/<clock rate>[/<channels>]
int32_t ReadRtpmap(SdpReading &reading, std::string_view value) {
    RTSPStreamDescription &description = reading.stream->description;
    std::string_view skipped;
    if (!Until(value, ':', skipped))
        return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid rtpmap value in SDP \n");
    description.payloadNumber = LeadingNumber(value);
    if (description.payloadNumber == 0 && !value.starts_with('0'))
        return reading.trace.Fail(RTSP_FAILURE, kNotANumber);

    std::string_view name;
    if (!Until(value, ' ', skipped) || !TakeEncodingName(reading, value, name))
        return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid rtpmap value in SDP \n");
    if (name.size() >= sizeof description.encodingName)
        return reading.trace.Fail(RTSP_FAILURE, "EXIT : %s :Problem in copying Encoding Name \n");
    CopyText(description.encodingName, name);

    if (const int32_t result = ReadClockAndChannels(reading, value); result != RTSP_SUCCESS) return result;
    TakeCodecType(*reading.stream, reading.dialect);
    return RTSP_SUCCESS;
}

// Whether the configuration is found or not, the stream can be received: failures are only told.
void ExtractAs(CodecConfig config, const SdpReading &reading) {
    RTSPStreamInfo *const stream = reading.stream;
    switch (config) {
    case CodecConfig::kNone:
        break;
    case CodecConfig::kH264ParameterSets:
        if (ExtractSPSPPS(stream) < 0)
            reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract SPS and PPS from SDP\n");
        break;
    case CodecConfig::kAacConfig:
        if (ExtractAACConfig(stream) < 0)
            reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Unable to extract AAC Config from SDP\n");
        break;
    case CodecConfig::kH265ParameterSets:
        ExtractH265ParameterSets(*stream);
        break;
    case CodecConfig::kConfigBytes:
        ExtractConfigBytes(*stream);
        break;
    }
}

// How much of it the description has.
int32_t CountConfigs(const RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    return (is.sps != nullptr) + (is.pps != nullptr) + (is.aacConfig != nullptr) + (stream.further.vps != nullptr) +
           (stream.further.config != nullptr);
}

int32_t MostConfigs(CodecConfig config) {
    if (config == CodecConfig::kNone) return 0;
    return config == CodecConfig::kH265ParameterSets ? 3 : config == CodecConfig::kH264ParameterSets ? 2 : 1;
}

// What is not found as it stands is looked for in the usual spelling.
void ExtractCodecConfig(SdpReading &reading) {
    RTSPStreamInfo &stream = *reading.stream;
    const Codec *const codec = FindCodec(stream.description.codecType);
    const CodecConfig config = codec != nullptr ? codec->config : CodecConfig::kNone;
    reading.configIsRead = codec != nullptr;
    ExtractAs(config, reading);
    const int32_t found = CountConfigs(stream);
    if (found >= MostConfigs(config) || !reading.dialect.IsOn(Rule::kOtherSpelling)) return;
    const HeapText plain = PlainSpelling(stream.description.fmtp);
    if (!plain) return;
    char *const spelled = std::exchange(stream.description.fmtp, plain.get());
    ExtractAs(config, reading);
    stream.description.fmtp = spelled;
    if (CountConfigs(stream) > found) (void)reading.dialect.Permits(Rule::kOtherSpelling);
}

// a=fmtp:<payload number> <name>=<value>; ...
int32_t ReadFmtp(SdpReading &reading, std::string_view value) {
    RTSPStreamDescription &description = reading.stream->description;
    std::string_view skipped;
    if (!Until(value, ':', skipped)) return RTSP_SUCCESS; // no parameters, nothing to keep

    HeapText fmtp = DuplicateText(value);
    if (!fmtp) return reading.trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    free(description.fmtp);
    description.fmtp = fmtp.release();
    description.fmtpLength = static_cast<int32_t>(value.size());
    ExtractCodecConfig(reading); // Kept: without a codec yet, from an rtpmap line above, it extracts nothing
    return RTSP_SUCCESS;
}

// As atof reads it, words and hexadecimal numbers included, but with a point for its point in every locale.
double LikeAtof(std::string_view text) {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    char number[1024];
    CopyText(number, text);
    return strtod_l(number, nullptr, cLocale);
}

// a=framerate:<frames per second>
int32_t ReadFrameRate(SdpReading &reading, std::string_view value) {
    const std::string_view text = After(value, ":");
    double frameRate = LikeAtof(text);
    if (frameRate == 0.0 && text != "0.0") {
        if (!reading.dialect.Permits(Rule::kAnyFrameRate))
            return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid SDP framerate\n");
        frameRate = LikeAtof(After(value, "="));
    }
    reading.stream->description.frameRate = frameRate;
    return RTSP_SUCCESS;
}

// Null when it is too long, or memory is short.
HeapText FindControlUrl(const SdpReading &reading, std::string_view control) {
    HeapText plain = control.size() <= kLongestPlainControl ? PlainControlUrl(reading.to, control) : nullptr;
    if (reading.base == nullptr) return plain;
    HeapText joined = JoinControl(reading.base.get(), control);
    if (!joined || IsTooLong(reading.to, joined.get())) return nullptr;
    if (!plain || std::string_view(plain.get()) != joined.get()) (void)reading.dialect.Permits(Rule::kControlBase);
    return joined;
}

// a=control:<URL, absolute or relative to the session's>
int32_t ReadControl(SdpReading &reading, std::string_view value) {
    reading.hasControl = true;
    std::string_view skipped;
    if (!Until(value, ':', skipped)) return reading.trace.Fail(kEndEarly, "EXIT : %s :Invalid streamURL field \n");
    HeapText url = FindControlUrl(reading, value);
    if (!url) return reading.trace.Fail(RTSP_FAILURE, "\tEXIT : %s : Too long stream URI received from Server \n");
    const bool isTheSessions = std::string_view(url.get()) == reading.to.path; // its URL serves then
    RtpRtspErrorPrint("\n\nINFOINFOINFO : STREAM URI : %s \n\n", isTheSessions ? "" : url.get());
    reading.stream->controlUrl = isTheSessions ? nullptr : std::move(url);
    return RTSP_SUCCESS;
}

// ---- which attribute a line is ----

struct Attribute {
    std::string_view mark; // found anywhere in the value
    int32_t (*read)(SdpReading &reading, std::string_view value);
    bool isOfFormat = false; // tells of one payload type
    std::string_view otherName = {};
};

// In test order: the first mark found decides, so "fmtp:96 control=..." is an fmtp line.
constexpr Attribute kAttributes[] = {
    {"rtpmap", ReadRtpmap, true},
    {"fmtp", ReadFmtp, true},
    {"framerate", ReadFrameRate, false, "x-framerate"},
    {"control", ReadControl},
};

const Attribute *FindByMark(std::string_view value) {
    const auto *const found = std::ranges::find_if(
        kAttributes, [value](const Attribute &attribute) { return Contains(value, attribute.mark); });
    return found == std::end(kAttributes) ? nullptr : found;
}

const Attribute *FindByName(std::string_view value) {
    const std::string_view name = value.substr(0, value.find_first_of(":= "));
    const auto *const found = std::ranges::find_if(kAttributes, [name](const Attribute &attribute) {
        return !name.empty() &&
               (EqualIgnoringCase(name, attribute.mark) || EqualIgnoringCase(name, attribute.otherName));
    });
    return found == std::end(kAttributes) ? nullptr : found;
}

const Attribute *FindAttribute(const Dialect &dialect, std::string_view value) {
    return dialect.IsOn(Rule::kAttributeByName) ? FindByName(value) : FindByMark(value);
}

// ---- the section as a whole ----

// What the line of an attribute says of one payload type is about; -1 when it names none.
int32_t PayloadTypeOf(std::string_view value) {
    const std::string_view number = After(value, ":");
    return !number.empty() && IsDigit(number.front()) ? LeadingNumber(number) : -1;
}

bool IsRtpmap(const Attribute *attribute) { return attribute != nullptr && attribute->read == ReadRtpmap; }

template <typename Visit> void ForEachAttribute(const SdpReading &reading, Visit visit) {
    for (const SDPField *line = reading.stream->sdpFieldList; line != nullptr; line = line->next)
        if (line->name[0] == 'a') visit(FindAttribute(reading.dialect, line->value), std::string_view(line->value));
}

// The first payload type of the m= line that the description, or everybody, knows; -1 when there is none.
int32_t ChooseFormat(const SdpReading &reading) {
    std::bitset<128> isMapped;
    std::optional<int32_t> last; // what the last rtpmap is about
    ForEachAttribute(reading, [&](const Attribute *attribute, std::string_view value) {
        if (!IsRtpmap(attribute)) return;
        last = PayloadTypeOf(value);
        if (*last >= 0 && *last < static_cast<int32_t>(isMapped.size()))
            isMapped.set(static_cast<std::size_t>(*last));
    });
    const auto mapped = [&isMapped](uint8_t type) { return isMapped[type]; };
    const std::span<const uint8_t> types = reading.formats.Types();
    // Where rtpmaps are of other types only, they tell more than the static meaning of those that are named.
    const bool knowsStatic =
        reading.dialect.IsOn(Rule::kStaticPayloadType) && (!last || std::ranges::any_of(types, mapped));
    for (const uint8_t type : types) {
        if (!isMapped[type] && !(knowsStatic && FindStaticFormat(type) != nullptr)) continue;
        if (last && *last != type) (void)reading.dialect.Permits(Rule::kFormatOfMedia);
        return type;
    }
    return -1;
}

// Parameters of a payload type that the m= line does not name are those of the chosen one, if it has none.
int32_t ReadFormat(SdpReading &reading) {
    const int32_t chosen = ChooseFormat(reading);
    bool hasParameters = false;
    ForEachAttribute(reading, [&](const Attribute *attribute, std::string_view value) {
        hasParameters |= attribute != nullptr && attribute->read == ReadFmtp && PayloadTypeOf(value) == chosen;
    });
    int32_t result = RTSP_SUCCESS;
    ForEachAttribute(reading, [&](const Attribute *attribute, std::string_view value) {
        if (result != RTSP_SUCCESS || attribute == nullptr || !attribute->isOfFormat) return;
        const int32_t type = PayloadTypeOf(value);
        const bool isForeign = !IsRtpmap(attribute) && !hasParameters && !reading.formats.Has(type);
        if (chosen < 0 || type == chosen || isForeign) result = ReadForgiving(reading, attribute->read, value);
    });
    return result;
}

// The first payload type of the m= line is what it is for everybody, when nothing else is said of the section.
// Whether there is one.
bool TakeStaticFormat(const SdpReading &reading) {
    RTSPStreamDescription &description = reading.stream->description;
    if (description.encodingName[0] != '\0') return false;
    for (const uint8_t type : reading.formats.Types()) {
        const StaticFormat *const known = FindStaticFormat(type);
        if (known == nullptr || !reading.dialect.Permits(Rule::kStaticPayloadType)) continue;
        CopyText(description.encodingName, known->encodingName);
        description.payloadNumber = type;
        description.clockRate = known->clockRate;
        description.channels = known->channels;
        TakeCodecType(*reading.stream, reading.dialect);
        return true;
    }
    return false;
}

} // namespace

int32_t ReadAttribute(SdpReading &reading, std::string_view value) {
    const Attribute *attribute = FindByMark(value);
    if (attribute != FindByName(value) && reading.dialect.Permits(Rule::kAttributeByName))
        attribute = FindByName(value);
    if (attribute == nullptr) return RTSP_SUCCESS;
    if (attribute->isOfFormat && reading.dialect.IsOn(Rule::kFormatOfMedia)) return RTSP_SUCCESS; // at its end
    return attribute->read(reading, value);
}

// The URL of the whole session; whole itself, those of its streams are relative to it (RFC 2326, C.2).
int32_t ReadSessionAttribute(SdpReading &reading, std::string_view value) {
    const Attribute *const attribute = FindByName(value);
    const std::string_view control = After(value, ":");
    if (attribute == nullptr || attribute->read != ReadControl || control.empty() || control == "*" ||
        control.size() > kLongestControlUrl || !reading.dialect.IsOn(Rule::kSessionControl))
        return RTSP_SUCCESS;
    const HeapText request = RequestUrl(reading.to);
    const HeapText &base = reading.base ? reading.base : request;
    HeapText joined = base ? JoinControl(base.get(), control) : nullptr;
    const HeapText &before = reading.aggregate ? reading.aggregate : request;
    if (!joined || IsTooLong(reading.to, joined.get()) || !before || std::string_view(joined.get()) == before.get())
        return RTSP_SUCCESS;
    (void)reading.dialect.Permits(Rule::kSessionControl);
    reading.aggregate = std::move(joined);
    if (IsWholeUrl(control)) reading.base = DuplicateText(control);
    return RTSP_SUCCESS;
}

// A section that is alone and names no URL is the session (RFC 2326, C.3). Several would all be one: SETUP numbers
// them.
void FinishControlUrls(SdpReading &reading) {
    const bool isAlone = reading.sections == 1 && !reading.hasControl;
    if (isAlone && reading.dialect.Permits(Rule::kNoControl))
        reading.stream->controlUrl =
            reading.aggregate ? DuplicateText(reading.aggregate.get()) : RequestUrl(reading.to);
    if (reading.sections > 0) NoteSameControls(reading.to.session);
}

// What the description is about, also where the m= line names other payload types.
void AcceptFormat(const SdpReading &reading) {
    const RTSPStreamDescription &is = reading.stream->description;
    PayloadTypeSet &accepted = reading.stream->payloadTypes;
    if (is.encodingName[0] == '\0' || is.payloadNumber < 0 || is.payloadNumber > 127) return;
    const auto type = static_cast<uint8_t>(is.payloadNumber);
    if (!accepted.Has(type) && reading.dialect.Permits(Rule::kPayloadTypeOfMedia)) accepted.Add(type);
}

// a=crypto:<tag> <suite> ...
void NoteSuite(RTSPStreamInfo &stream) {
    const char *const media = stream.sdpFieldList != nullptr ? stream.sdpFieldList->value : "";
    if (!IsProtected(ProfileOf(media))) return;
    std::string_view suite;
    for (const SDPField *line = stream.sdpFieldList; line != nullptr && suite.empty(); line = line->next)
        if (line->name[0] == 'a' && std::string_view(line->value).starts_with("crypto:"))
            suite = FirstWord(After(line->value, " "));
    stream.further.suite = DuplicateText(suite);
}

// Packets that stay encrypted, or of which the parameters say so, have no configuration to be read.
bool MayTellInStream(const RTSPStreamInfo &stream) {
    const char *const media = stream.sdpFieldList != nullptr ? stream.sdpFieldList->value : "";
    const char *const fmtp = stream.description.fmtp;
    const bool isReadable = !Contains(media, "SAVP") || stream.session->protection != nullptr;
    return isReadable && (fmtp == nullptr || FirstWord(FmtpParameter(fmtp, "cpresent=")) != "0");
}

int32_t FinishSection(SdpReading &reading) {
    if (!std::exchange(reading.sectionIsOpen, false)) return RTSP_SUCCESS;
    const Dialect &dialect = reading.dialect;
    const int32_t result = dialect.IsOn(Rule::kFormatOfMedia) ? ReadFormat(reading) : RTSP_SUCCESS;
    const bool isStatic = TakeStaticFormat(reading);
    AcceptFormat(reading);
    NoteSuite(*reading.stream);
    const RTSPStreamDescription &description = reading.stream->description;
    if (description.fmtp != nullptr && description.codecType != 0 && !reading.configIsRead &&
        (isStatic || dialect.Permits(Rule::kParametersFirst)))
        ExtractCodecConfig(reading);
    if (dialect.IsOn(Rule::kConfigInStream) && MayTellInStream(*reading.stream))
        SearchMissingConfig(*reading.stream);
    return result;
}

} // namespace rtsptap
