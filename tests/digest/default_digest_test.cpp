#include "rtsptap.h"

#include <gtest/gtest.h>

namespace {

struct Request {
    const char *cnonce, *algorithm, *nonceCount, *qop, *password, *method, *uri;
};

std::string Digest(const Request &request, int expectedResult = 0) {
    char response[64];
    std::fill(std::begin(response), std::end(response), 'x');
    EXPECT_EQ(GenerateDigestResponse("dcd98b7102dd2f0e8b11d0f600bfb0c093", request.cnonce, "Mufasa",
                                     "testrealm@host.com", request.password, request.algorithm, request.nonceCount,
                                     request.method, request.qop, request.uri, response),
              expectedResult);
    return response;
}

} // namespace

TEST(DefaultDigest, GivesTheKnownAnswers) {
    // RFC 2617, 3.5, with quality of protection; and the form of RFC 2069 with the same data.
    EXPECT_EQ(Digest({"0a4f113b", "MD5", "00000001", "auth", "Circle Of Life", "GET", "/dir/index.html"}),
              "6629fae49393a05397450978507c4ef1");
    EXPECT_EQ(Digest({nullptr, "md5", "", nullptr, "Circle Of Life", "GET", "/dir/index.html"}),
              "670fd8c2df070c60b045671b8b24ff02");
}

TEST(DefaultDigest, RefusesWhatItCannotCompute) {
    EXPECT_EQ(Digest({nullptr, "SHA-256", "", nullptr, "x", "PLAY", "rtsp://h/s"}, -1), "");
    EXPECT_EQ(Digest({"0a4f113b", "md5", "00000001", "auth-int", "x", "PLAY", "rtsp://h/s"}, -1), "");
}
