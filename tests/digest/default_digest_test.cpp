#include "rtsptap.h"

#include <gtest/gtest.h>

// RFC 2617, 3.5. The form without quality of protection: tests/rtsp/client/challenge_test.cpp.
TEST(DefaultDigest, GivesTheKnownAnswerOrRefusesWhatItCannotCompute) {
    const std::tuple<const char *, const char *, int, const char *> cases[] = {
        {"MD5", "auth", 0, "6629fae49393a05397450978507c4ef1"},
        {"SHA-256", "", -1, ""},
        {"md5", "auth-int", -1, ""}};
    for (const auto &[algorithm, qop, result, expected] : cases) {
        char response[64] = "before";
        EXPECT_EQ(GenerateDigestResponse("dcd98b7102dd2f0e8b11d0f600bfb0c093", "0a4f113b", "Mufasa",
                                         "testrealm@host.com", "Circle Of Life", algorithm, "00000001", "GET", qop,
                                         "/dir/index.html", response),
                  result);
        EXPECT_STREQ(response, expected);
    }
}
