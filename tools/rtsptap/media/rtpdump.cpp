// Packets in the format of rtptools: a line of text, a header, and each packet after its length and its time.
//
//     #!rtpplay1.0 ADDRESS/PORT\n
//     start: seconds (4), microseconds (4) | source address (4) | source port (2) | 0 (2)
//     length of this record (2) | length of the packet (2) | milliseconds since start (4) | packet        repeated
#include "base/writing.h"
#include "media/output_file.h"

#include <array>
#include <cerrno>

namespace tool {
namespace {

constexpr std::size_t kRecordHeaderBytes = 8;
constexpr std::size_t kLongestPacket = 0xFFFF - kRecordHeaderBytes;

template <std::size_t kBytes> void PutNumber(uint8_t *at, uint64_t value) {
    for (std::size_t index = 0; index < kBytes; ++index)
        at[index] = static_cast<uint8_t>(value >> (8 * (kBytes - 1 - index)));
}

class RtpdumpSink : public PacketSink {
public:
    RtpdumpSink(const OutputFile &file, FILE *opened, uint16_t port) : file_(file), out_(opened) {
        WriteBeginning(port);
    }
    ~RtpdumpSink() override {
        if (out_ != nullptr) std::fclose(out_);
    }

    void Take(const Stream &, const RTPStreamData &packet, Clock::time_point arrival) override {
        if (out_ == nullptr || error_ != 0) return;
        const std::size_t length = std::min<std::size_t>(packet.packetLength, kLongestPacket);
        const auto offset = std::chrono::duration_cast<std::chrono::milliseconds>(arrival - begin_).count();
        std::array<uint8_t, kRecordHeaderBytes> header;
        PutNumber<2>(&header[0], length + kRecordHeaderBytes);
        PutNumber<2>(&header[2], packet.packetLength);
        PutNumber<4>(&header[4], offset < 0 ? 0 : static_cast<uint64_t>(offset));
        Write(header.data(), header.size());
        Write(packet.packetData, length);
    }

    bool IsDone() override {
        if (out_ != nullptr && error_ == 0 && std::fflush(out_) != 0) error_ = errno;
        return error_ != 0;
    }

    Outcome Finish() override {
        if (out_ != nullptr && std::fclose(out_) != 0 && error_ == 0) error_ = errno;
        out_ = nullptr;
        return error_ == 0 ? Outcome{} : WriteFailure(file_.name, error_);
    }

private:
    void WriteBeginning(uint16_t port) {
        constexpr uint32_t kLoopback = 0x7F000001;
        const std::string line = "#!rtpplay1.0 127.0.0.1/" + std::to_string(port) + "\n";
        Write(line.data(), line.size());
        const int64_t start = (WallClockOffset() + begin_.time_since_epoch()).count() / 1000;
        std::array<uint8_t, 16> header = {};
        PutNumber<4>(&header[0], static_cast<uint64_t>(start / 1000000));
        PutNumber<4>(&header[4], static_cast<uint64_t>(start % 1000000));
        PutNumber<4>(&header[8], kLoopback);
        PutNumber<2>(&header[12], port);
        Write(header.data(), header.size());
    }

    void Write(const void *bytes, std::size_t length) {
        if (std::fwrite(bytes, 1, length, out_) != length && error_ == 0) error_ = errno;
    }

    const OutputFile file_;
    const Clock::time_point begin_ = Clock::now();
    FILE *out_;     // null: finished
    int error_ = 0; // of the first write that failed
};

} // namespace

Outcome MakeRtpdumpSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                        std::unique_ptr<PacketSink> &sink) {
    FILE *opened = nullptr;
    if (Outcome failed = OpenForWriting(file, opened); !failed.IsOk()) return failed;
    sink = std::make_unique<RtpdumpSink>(file, opened, streams.empty() ? uint16_t{0} : streams.front().port);
    return {};
}

} // namespace tool
