// The sinks that write: one for each kind of file.
#pragma once

#include "media/output_file.h"
#include "reception/packet_sink.h"
#include "session/stream_format.h"

#include <memory>
#include <vector>

namespace tool {

// The sink for a format and the streams that it has room for; the others are named on standard error.
Outcome MakeSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                 std::unique_ptr<PacketSink> &sink);

// One sink each; only in builds that have what they need.
Outcome MakePcapSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                     std::unique_ptr<PacketSink> &sink);
Outcome MakeRtpdumpSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink);
Outcome MakeMediaSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                      std::unique_ptr<PacketSink> &sink);
Outcome MakePictureSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink);

} // namespace tool
