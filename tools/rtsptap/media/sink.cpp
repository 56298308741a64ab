#include "media/sink.h"

namespace tool {

Outcome MakeSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                 std::unique_ptr<PacketSink> &sink) {
    if (file.format == kRtpdump) return MakeRtpdumpSink(file, streams, sink);
#ifdef RTSPTAP_WITH_LIBPCAP
    if (file.format == kPcap) return MakePcapSink(file, streams, sink);
#endif
#ifdef RTSPTAP_WITH_GSTREAMER
    if ((file.format & kPictures) != 0) return MakePictureSink(file, streams, sink);
    return MakeMediaSink(file, streams, sink);
#else
    // ChooseOutput has refused these formats before.
    return {ExitCode::kOutputFailed, FormatNames(file.format) + ": not in this build"};
#endif
}

} // namespace tool
