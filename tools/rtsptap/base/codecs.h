// The codecs, one row each: what the command line, descriptions, files and pipelines call them and know of them. A
// new one is a row of codecs.cpp, and, if it has pictures, what its payloads tell in media/payload.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// What is written; a bit each, so that a row can name several.
enum FileFormat : unsigned {
    kMp4 = 1,
    kMkv = 2,
    kTs = 4,
    kH264 = 8,
    kAac = 16,
    kWav = 32,
    kMjpeg = 64,
    kPcap = 128,
    kRtpdump = 256,
    kPng = 512,
    kJpg = 1024,
    kH265 = 2048
};
constexpr unsigned kContainers = kMp4 | kMkv | kTs; // hold several streams, and can be split
constexpr unsigned kRecordings = kContainers | kH264 | kH265 | kAac | kWav | kMjpeg | kPcap | kRtpdump;
constexpr unsigned kPictures = kPng | kJpg;

struct Codec {
    int32_t type;             // RTPCodecType or RTSPTapCodec; 0: of a stream that is known by its name alone
    const char *name;         // on the command line
    const char *encodingName; // of descriptions and texts
    const char *variant;      // the usual one behind the encoding name, "-32"; empty: it has none

    const char *medium; // of its m= line: "video", "audio", "application", "text"
    bool hasFrames;     // picture by picture, the marker bit ends one; key frames can be told

    int32_t clockRate;   // RTP timestamp units per second, unless a description says otherwise
    int32_t payloadType; // RFC 3551, 6; 96 where that has none
    int32_t channels;    // of that payload type; 0: not said

    const char *parameterSets; // field of a=fmtp with what it cannot be decoded without, unless packets bring it
    bool needsParameters;      // it cannot be decoded without a=fmtp

    // GStreamer's elements from packets to frames, and from frames to raw media; each may be empty. Words in
    // capitals are filled in where the pipeline is described, what follows a question mark may be missing.
    const char *depayloader;
    const char *parser;
    const char *decoder;

    // Files that hold it as it is, decoded to samples, and encoded anew.
    unsigned stored;
    unsigned sampled;
    unsigned encoded;
    const char *inMp4;    // what follows the parser there
    const char *inStream; // likewise in a transport stream or a bare file

    bool IsVideo() const { return std::string_view(medium) == "video"; }
    bool IsAudio() const { return std::string_view(medium) == "audio"; }
};

const Codec *
CodecOf(int32_t codecType); // never null: of others the row of type 0, which no file holds but captures

// Of a payload type that needs no description (RFC 3551, 6); null when there is none, or it is not one of ours.
const Codec *CodecOfPayloadType(int32_t payloadType);

// A codec type by its name, letter case ignored; 0 when there is none of that name.
int32_t CodecTypeOfName(std::string_view name);

// By the name that descriptions use, as "mpeg4-generic" or "G726-32"; 0 when there is none of that name.
int32_t CodecTypeOfEncoding(std::string_view name);

// "h264", "mp4v", ... of the codecs of a medium, and of all.
std::vector<std::string> CodecNames(std::string_view medium = {});

} // namespace tool
