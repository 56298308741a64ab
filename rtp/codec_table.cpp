
#include "rtp/codec_table.h"

#include "platform/text.h"
#include "rtsptap.h"

namespace rtsptap {

namespace {

enum class NameMatch { kExact, kIgnoringCase, kContained };

struct CodecRule {
    std::string_view name;
    NameMatch match;
    int32_t codecType;
};

// In test order.
constexpr CodecRule kCodecs[] = {
    {"H264", NameMatch::kExact, RTP_CODEC_H264},
    {"MP4V-ES", NameMatch::kExact, RTP_CODEC_MP4V_ES},
    {"JPEG", NameMatch::kExact, RTP_CODEC_JPEG},
    {"MP2T", NameMatch::kExact, RTP_CODEC_MP2T},
    {"mpeg4-generic", NameMatch::kIgnoringCase, RTP_CODEC_MPEG4_GENERIC},
    {"PCMA", NameMatch::kExact, RTP_CODEC_PCMA},
    {"PCMU", NameMatch::kExact, RTP_CODEC_PCMU},
    {"G726", NameMatch::kContained, RTP_CODEC_G726}, // G726-16 to -40, and AAL2-G726-32
    {"L16", NameMatch::kExact, RTP_CODEC_L16},
    {"MPA", NameMatch::kExact, RTP_CODEC_MPA},
};

bool Fits(const CodecRule &rule, std::string_view name) {
    switch (rule.match) {
    case NameMatch::kIgnoringCase:
        return EqualIgnoringCase(name, rule.name);
    case NameMatch::kContained:
        return Contains(name, rule.name);
    case NameMatch::kExact:
        break;
    }
    return name == rule.name;
}

} // namespace

int32_t CodecTypeOf(std::string_view encodingName) {
    for (const CodecRule &rule : kCodecs)
        if (Fits(rule, encodingName)) return rule.codecType;
    return kNoCodecType;
}

} // namespace rtsptap
