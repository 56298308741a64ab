#include "rtsp/client/client.h"
#include "rtp/interleaved/connection.h"
#include "rtsp/message/response.h"
#include "rtsp/client/reply_source.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/rows.h"

#include <gtest/gtest.h>

using namespace rtsptap;
using namespace rtsptap::test;

namespace {

ResponseMsgPtr Parse(const std::string &text) {
    const RecvBufferPtr buffer(CreateRecvBuffer(static_cast<uint32_t>(text.size())));
    text.copy(buffer->data, text.size());
    buffer->length = static_cast<int32_t>(text.size());
    return ResponseMsgPtr(ClientParseMessage(buffer.get()));
}

// "version status reason cSeq [name=value]...", or what a refusal printed.
std::string Summary(const std::string &text) {
    CapturedStdout output;
    const ResponseMsgPtr response = Parse(text);
    if (!response) return output.Text();
    std::string summary = std::string(response->version) + " " + std::to_string(response->statusCode) + " " +
                          response->reasonPhrase + " " + std::to_string(response->cSeq);
    for (uint32_t i = 0; i < response->headerCount; ++i)
        summary +=
            std::string(" [") + response->headers[i].headerName + "=" + response->headers[i].headerValue + "]";
    return summary;
}

} // namespace

TEST(Response, IsReadLineByLineOrRefusedWithItsReason) {
    for (const auto &row : Rows("responses.txt")) EXPECT_EQ(OnOneLine(Summary(Lines(row[0]))), row.at(1)) << row[0];
}

TEST(Response, HeadersAreFoundIgnoringCaseTheFirstFirst) {
    const ResponseMsgPtr response = Parse("R 200 OK\nPublic: a\nPUBLIC: b\nPublicity: c");
    const CapturedStdout output;
    EXPECT_STREQ(GetResponseHeader(response.get(), "public"), "a");
    EXPECT_EQ(GetResponseHeader(response.get(), "Publi"), nullptr);
    EXPECT_EQ(GetResponseHeader(nullptr, "Public"), nullptr);
}

TEST(Response, AMissingSocketFailsAtOnce) {
    RTSPClient client;
    int32_t errCode = 7;
    CapturedStdout output;
    for (const int socket : {-1, 1 << 20}) {
        client.rtspSocket = socket;
        EXPECT_EQ(ClientReadMessage(&client, 100, &errCode), nullptr);
    }
    EXPECT_EQ(errCode, 7);
    const std::string failed = "!!!ERROR!!! : \tEXIT : ClientReadMessage :Socket select call failed\n";
    EXPECT_EQ(output.Text(), failed + failed);
}
