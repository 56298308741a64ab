// Packets as a capture of IPv4 and UDP, times in nanoseconds. The library does not tell addresses, and over TCP
// there are no datagrams: the headers are made up, each stream with a port of its own, so that every tool finds
// them.
#include "media/packet_file.h"
#include "media/sink.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <mutex>

namespace tool {
namespace {

constexpr std::size_t kIpBytes = 20;
constexpr std::size_t kUdpBytes = 8;
constexpr std::size_t kHeaderBytes = kIpBytes + kUdpBytes;
constexpr std::size_t kLongestPacket = 0xFFFF - kHeaderBytes;
constexpr int kSnapLength = 0xFFFF;
constexpr uint32_t kSource = 0xC0000201; // 192.0.2.1 and .2: for examples, so nobody's
constexpr uint32_t kDestination = 0xC0000202;

using Headers = std::array<uint8_t, kHeaderBytes>;

void Put16(Headers &headers, std::size_t at, std::size_t value) {
    headers[at] = static_cast<uint8_t>(value >> 8);
    headers[at + 1] = static_cast<uint8_t>(value);
}

void Put32(Headers &headers, std::size_t at, uint32_t value) {
    Put16(headers, at, value >> 16);
    Put16(headers, at + 2, value & 0xFFFF);
}

// RFC 791 and RFC 768; a UDP checksum of 0 says that there is none.
Headers MakeHeaders(std::size_t payload, uint16_t port, uint16_t identification) {
    Headers headers = {};
    headers[0] = 0x45; // version 4, five words
    Put16(headers, 2, kHeaderBytes + payload);
    Put16(headers, 4, identification);
    headers[8] = 64; // time to live
    headers[9] = 17; // UDP
    Put32(headers, 12, kSource);
    Put32(headers, 16, kDestination);
    uint32_t sum = 0;
    for (std::size_t at = 0; at < kIpBytes; at += 2)
        sum += static_cast<uint32_t>(headers[at] << 8 | headers[at + 1]);
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    Put16(headers, 10, ~sum & 0xFFFF);
    Put16(headers, kIpBytes, port);
    Put16(headers, kIpBytes + 2, port);
    Put16(headers, kIpBytes + 4, kUdpBytes + payload);
    return headers;
}

class PcapSink : public PacketSink {
public:
    PcapSink(const OutputFile &file, const std::vector<StreamFormat> &streams) : file_(file) {
        for (const StreamFormat &format : streams) ports_[format.stream.number] = format.port;
    }
    ~PcapSink() override { Close(); }

    Outcome Open() {
        FILE *opened = nullptr;
        if (Outcome failed = OpenPacketFile(file_, opened); !failed.IsOk()) return failed;
        capture_ = pcap_open_dead_with_tstamp_precision(DLT_RAW, kSnapLength, PCAP_TSTAMP_PRECISION_NANO);
        if (capture_ != nullptr) dumper_ = pcap_dump_fopen(capture_, opened);
        return dumper_ != nullptr ? Outcome{} : WriteFailure(file_.name, errno);
    }

    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override {
        constexpr int64_t kPerSecond = 1000000000;
        const std::lock_guard guard(lock_);
        if (dumper_ == nullptr || error_ != 0) return;
        const std::size_t length = std::min<std::size_t>(packet.packetLength, kLongestPacket);
        const Headers headers = MakeHeaders(length, ports_[stream.number], ++identification_);
        std::vector<uint8_t> frame(kHeaderBytes + length);
        std::copy(headers.begin(), headers.end(), frame.begin());
        std::copy_n(packet.packetData, length, frame.begin() + kHeaderBytes);
        // Two readers may come here in another order than they took their packets.
        const int64_t time = latest_ = std::max(latest_, wallClock_.Of(arrival).count());
        const auto size = static_cast<bpf_u_int32>(frame.size());
        const pcap_pkthdr header{{time / kPerSecond, time % kPerSecond}, size, size};
        pcap_dump(reinterpret_cast<u_char *>(dumper_), &header, frame.data());
        if (std::ferror(pcap_dump_file(dumper_)) != 0) error_ = errno;
    }

    bool IsDone() override {
        const std::lock_guard guard(lock_);
        if (dumper_ != nullptr && error_ == 0 && pcap_dump_flush(dumper_) != 0) error_ = errno;
        return error_ != 0;
    }

    Outcome Finish() override {
        IsDone(); // what cannot be flushed is a failure
        const std::lock_guard guard(lock_);
        Close();
        return error_ == 0 ? Outcome{} : WriteFailure(file_.name, error_);
    }

private:
    void Close() {
        if (dumper_ != nullptr) pcap_dump_close(dumper_);
        if (capture_ != nullptr) pcap_close(capture_);
        dumper_ = nullptr;
        capture_ = nullptr;
    }

    const OutputFile file_;
    const WallClock wallClock_;
    std::map<int32_t, uint16_t> ports_; // by stream number; constant after construction
    std::mutex lock_;                   // guards the fields below
    pcap_t *capture_ = nullptr;
    pcap_dumper_t *dumper_ = nullptr; // null: finished
    uint16_t identification_ = 0;
    int64_t latest_ = 0; // time of the packet before; nanoseconds since 1970
    int error_ = 0;      // of the first write that failed
};

} // namespace

Outcome MakePcapSink(const OutputFile &file, const std::vector<StreamFormat> &streams,
                     std::unique_ptr<PacketSink> &sink) {
    auto made = std::make_unique<PcapSink>(file, streams);
    if (Outcome failed = made->Open(); !failed.IsOk()) return failed;
    sink = std::move(made);
    return {};
}

} // namespace tool
