// Packets as a capture of IPv4 and UDP, RTCP included, times in nanoseconds and in order. The library does not tell
// addresses, and over TCP there are no datagrams: the headers are made up, each stream with a port of its own, so
// that every tool finds them.
#include "base/text.h"
#include "base/writing.h"
#include "media/output_file.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <map>
#include <span>

namespace tool {
namespace {

constexpr std::size_t kIpBytes = 20;
constexpr std::size_t kUdpBytes = 8;
constexpr std::size_t kHeaderBytes = kIpBytes + kUdpBytes;
constexpr std::size_t kLongestPacket = 0xFFFF - kHeaderBytes;
constexpr int kSnapLength = 0xFFFF;
constexpr uint32_t kSource = 0xC0000201; // 192.0.2.1 and .2: for examples, so nobody's
constexpr uint32_t kDestination = 0xC0000202;

struct Address {
    uint32_t host;
    uint16_t port;
};

constexpr Address kAnnouncements = {0xE0027FFE, 9875}; // 224.2.127.254

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
Headers MakeHeaders(std::size_t payload, const Address &sender, const Address &receiver, uint16_t identification) {
    Headers headers = {};
    headers[0] = 0x45; // version 4, five words
    Put16(headers, 2, kHeaderBytes + payload);
    Put16(headers, 4, identification);
    headers[8] = 64; // time to live
    headers[9] = 17; // UDP
    Put32(headers, 12, sender.host);
    Put32(headers, 16, receiver.host);
    uint32_t sum = 0;
    for (std::size_t at = 0; at < kIpBytes; at += 2)
        sum += static_cast<uint32_t>(headers[at] << 8 | headers[at + 1]);
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    Put16(headers, 10, ~sum & 0xFFFF);
    Put16(headers, kIpBytes, sender.port);
    Put16(headers, kIpBytes + 2, receiver.port);
    Put16(headers, kIpBytes + 4, kUdpBytes + payload);
    return headers;
}

// The first packet of a capture: what would announce its streams to a group (RFC 2974), so that programs know what
// the ports carry.
std::vector<uint8_t> Announcement(const std::vector<StreamFormat> &streams) {
    constexpr uint8_t kHeader[] = {0x20, 0, 0, 1, 192, 0, 2, 1}; // version 1, no authentication, hash, kSource
    std::string text = "v=0\r\no=- 1 1 IN IP4 192.0.2.1\r\ns=capture\r\nc=IN IP4 192.0.2.2\r\nt=0 0\r\n";
    for (const StreamFormat &format : streams) {
        const std::string payloadType = std::to_string(format.payloadType);
        const std::string &medium = format.stream.media.empty() ? format.codec->medium : format.stream.media;
        text += "m=" + Printable(medium) + " " + std::to_string(format.port) + " RTP/AVP " + payloadType + "\r\n";
        if (!format.encodingName.empty())
            text += "a=rtpmap:" + payloadType + " " + format.encodingName + "/" + std::to_string(format.clockRate) +
                    (format.channels > 1 ? "/" + std::to_string(format.channels) : "") + "\r\n";
        if (!format.parameters.empty()) text += "a=fmtp:" + format.parameters + "\r\n";
    }
    std::vector<uint8_t> packet(sizeof kHeader + text.size());
    std::copy(std::begin(kHeader), std::end(kHeader), packet.begin());
    std::copy(text.begin(), text.end(), packet.begin() + sizeof kHeader);
    return packet;
}

class PcapSink : public PacketSink {
public:
    PcapSink(const OutputFile &file, const std::vector<StreamFormat> &streams) : file_(file), streams_(streams) {
        for (const StreamFormat &format : streams) ports_[format.stream.number] = format.port;
    }
    ~PcapSink() override { Close(); }

    Outcome Open() {
        FILE *opened = nullptr;
        if (Outcome failed = OpenForWriting(file_, opened); !failed.IsOk()) return failed;
        capture_ = pcap_open_dead_with_tstamp_precision(DLT_RAW, kSnapLength, PCAP_TSTAMP_PRECISION_NANO);
        if (capture_ != nullptr) dumper_ = pcap_dump_fopen(capture_, opened);
        if (dumper_ == nullptr) return WriteFailure(file_.name, errno);
        const std::vector<uint8_t> announcement = Announcement(streams_);
        Write(announcement, {kSource, kAnnouncements.port}, kAnnouncements, Clock::now());
        return {};
    }

    void Take(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) override {
        const uint16_t port = ports_[stream.number];
        Write({packet.packetData, packet.packetLength}, {kSource, port}, {kDestination, port}, arrival);
    }

    void TakeControl(int32_t number, bool isSent, std::span<const uint8_t> packet) override {
        const auto port = static_cast<uint16_t>(ports_[number] + 1);
        const Address sender = {isSent ? kDestination : kSource, port};
        const Address receiver = {isSent ? kSource : kDestination, port};
        Write(packet, sender, receiver, Clock::now());
    }

    bool IsDone() override {
        if (dumper_ != nullptr && error_ == 0 && pcap_dump_flush(dumper_) != 0) error_ = errno;
        return error_ != 0;
    }

    Outcome Finish() override {
        IsDone(); // what cannot be flushed is a failure
        Close();
        return error_ == 0 ? Outcome{} : WriteFailure(file_.name, error_);
    }

private:
    void Write(std::span<const uint8_t> packet, const Address &sender, const Address &receiver,
               Clock::time_point moment) {
        constexpr int64_t kPerSecond = 1000000000;
        if (dumper_ == nullptr || error_ != 0) return;
        const std::size_t length = std::min(packet.size(), kLongestPacket);
        const Headers headers = MakeHeaders(length, sender, receiver, ++identification_);
        std::vector<uint8_t> frame(kHeaderBytes + length);
        std::copy(headers.begin(), headers.end(), frame.begin());
        std::copy_n(packet.data(), length, frame.begin() + kHeaderBytes);
        // Two readers may come here in another order than they took their packets.
        const int64_t time = latest_ = std::max(latest_, (wallClock_ + moment.time_since_epoch()).count());
        const auto size = static_cast<bpf_u_int32>(frame.size());
        const pcap_pkthdr header{{time / kPerSecond, time % kPerSecond}, size, size};
        pcap_dump(reinterpret_cast<u_char *>(dumper_), &header, frame.data());
        if (std::ferror(pcap_dump_file(dumper_)) != 0) error_ = errno;
    }

    void Close() {
        if (dumper_ != nullptr) pcap_dump_close(dumper_);
        if (capture_ != nullptr) pcap_close(capture_);
        dumper_ = nullptr;
        capture_ = nullptr;
    }

    const OutputFile file_;
    const std::vector<StreamFormat> streams_;
    const std::chrono::nanoseconds wallClock_ = WallClockOffset();
    std::map<int32_t, uint16_t> ports_; // by stream number; constant after construction
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
