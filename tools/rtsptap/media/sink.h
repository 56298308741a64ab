// What packets go to: a file, standard output, a picture.
#pragma once

#include "cli/outcome.h"
#include "media/output_file.h"
#include "media/stream_format.h"
#include "reception/statistics.h"

#include <memory>
#include <vector>

namespace tool {

class PacketSink {
public:
    PacketSink() = default;
    virtual ~PacketSink() = default;
    PacketSink(const PacketSink &) = delete;
    PacketSink &operator=(const PacketSink &) = delete;

    // On the thread that reads the stream; streams of several threads come at the same time.
    virtual void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) = 0;

    virtual bool IsDone() = 0;    // wants no more packets: complete, or failed
    virtual Outcome Finish() = 0; // completes the output; packets taken later are passed over
};

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
