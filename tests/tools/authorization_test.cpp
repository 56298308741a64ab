// Which of a server's offers the tool answers, and with what.
#include "tools/rtsptap/session/authorization.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

Reply Asking(const std::string &challenges) {
    return ParseReply("RTSP/1.0 401 No\r\nWWW-Authenticate: " + challenges + "\r\n\r\n");
}

TEST(Authorization, TheStrongestOfferIsAnsweredAndBasicOnlyWhereItIsAlone) {
    const std::string md5 = "Digest realm=\"a, b\", nonce=\"n1\"";
    const std::string next = "\r\nWWW-Authenticate: ";
    const struct {
        std::string challenges, begin, digest;
    } cases[] = {
        {"basic realm=\"r\"", "Basic am9lOmh1bnRlcjI=", ""},
        {"Basic realm=\"r\", " + md5, "Digest username=\"joe\", realm=\"a, b\", nonce=\"n1\"",
         "c5548b5e924a4930877e569a2fdb25ce\""},
        {"Basic realm=\"r\"" + next + "digest  Algorithm=SHA-256,nonce=n1 , REALM=\"a, b\"" + next + md5, "Digest ",
         "4a334b4aeb4605827371b796aad1512c61f27d564e6bd387faa4ac9d159065b5\", algorithm=SHA-256"},
        {md5 + ", algorithm=SHA-512-256, opaque=\"o\", Negotiate abc==", "Digest ",
         "6f9b8152d581ce9716206254fbbc00f023912272b81e26a18c6e9e45a7d13c47\", algorithm=SHA-512-256, opaque=\"o\""},
        {md5 + ", qop=\"auth-int, auth\"", "Digest ", "qop=auth, nc=00000001, cnonce=\""},
        {"Basic realm=\"r\", " + md5 + ", algorithm=TIGER", "", ""},
        {md5 + ", qop=other", "", ""},
        {"Negotiate", "", ""},
        {"=, \", ,\\", "", ""},
    };
    for (const auto &[challenges, begin, digest] : cases) {
        Authorization authorization({"joe", "hunter2"});
        EXPECT_EQ(!begin.empty(), authorization.Take(Asking(challenges))) << challenges;
        if (begin.empty()) continue;
        const std::string value = authorization.Value("PLAY", "rtsp://10.0.0.5:554/live");
        EXPECT_TRUE(value.starts_with(begin)) << value;
        EXPECT_NE(value.npos, value.find(digest)) << value;
    }
}

TEST(Authorization, ANewNonceIsNoWrongPassword) {
    const std::string first = "Digest realm=\"r\", nonce=\"1\"";
    const std::string second = "Digest realm=\"r\", nonce=\"2\"";
    Authorization authorization({"joe", "hunter2"});
    EXPECT_TRUE(authorization.Take(Asking(first)));
    EXPECT_FALSE(authorization.Take(Asking(second)));
    EXPECT_EQ("user name or password are wrong", authorization.Complaint());
    EXPECT_TRUE(authorization.Take(Asking(first + ", stale=TRUE")));
    authorization.NoteAccepted();
    EXPECT_TRUE(authorization.Take(Asking(second)));
    EXPECT_FALSE(authorization.Take(Asking(first)));
    EXPECT_NE("user name or password are wrong", authorization.Complaint());
}

} // namespace
} // namespace tool
