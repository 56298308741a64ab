// What is refused before anything is sent, and which check comes first: the rows of tests/data/refusals.txt.
#include "tests/support/calls.h"
#include "tests/support/rows.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

namespace rtsptap::test {

TEST(Calls, AreRefusedInTheOrderOfTheirChecks) {
    const Client client, unsized(0);
    const Session described(kUdp, CLIENT_DESCRIBE_SENT_STATE), tcp(kTcp, CLIENT_DESCRIBE_SENT_STATE);
    const HeaderList list({});
    const UdpPeer taken, upper(static_cast<uint16_t>(FreePair() + 1));
    const std::pair<std::string, intptr_t> names[] = {
        {"client", client},     {"unsized", unsized}, {"described", described.client}, {"tcp", tcp.client},
        {"list", list},         {"gone", Client()},   {"closed", UdpPeer().Port()},    {"pair", upper.Port() - 1},
        {"taken", taken.Port()}};
    Words words;
    for (const auto &[name, value] : names) words.names["{" + name + "}"] = std::to_string(value);
    for (const auto &row : Rows("refusals.txt")) {
        const std::string line = row[0].substr(row[0].find_first_not_of("-0123456789 "));
        const std::size_t descriptors = CountDescriptors();
        Refusals refused(line.substr(0, line.find(' ')));
        SCOPED_TRACE(row[0]);
        refused(static_cast<int32_t>(words.Call(line)), std::stoi(row[0]),
                row.size() > 1 ? Lines(row[1], "\n") : "");
        EXPECT_EQ(CountDescriptors(), descriptors + 2); // of the capture
    }
    // Another port works after all those, and its stream is the one that is found.
    const uint16_t port = UdpPeer().Port();
    EXPECT_EQ(StartThirdPartyClient(client, 3, RTP_CODEC_MP2T, port, 100000, 0, 0, 0, 0, 0, 0), 0);
    UdpPeer().SendTo(port, Bytes(RtpPacket{.payloadType = 33, .sequenceNumber = 5}));
    EXPECT_EQ(TakeSequenceNumbers(client, RTP_CODEC_MP2T, 1), Numbers(5, 5));
}

} // namespace rtsptap::test
