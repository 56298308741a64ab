// Which of a server's offers the tool answers, and with what.
#include "tools/rtsptap/session/authorization.h"

#include "tests/support/texts.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

using rtsptap::test::Lines;
using rtsptap::test::Rows;

Reply Asking(const std::string &challenges) {
    return ParseReply("RTSP/1.0 401 No\r\nWWW-Authenticate: " + challenges + "\r\n\r\n");
}

TEST(Authorization, TheStrongestOfferIsAnsweredAndBasicOnlyWhereItIsAlone) {
    for (const auto &row : Rows("offers.txt")) {
        const std::string &challenges = row[0];
        const std::string begin = row.size() > 1 ? row[1] : "";
        Authorization authorization({"joe", "hunter2"});
        EXPECT_EQ(!begin.empty(), authorization.Take(Asking(Lines(challenges)))) << challenges;
        if (begin.empty()) continue;
        const std::string value = authorization.Value("PLAY", "rtsp://10.0.0.5:554/live");
        EXPECT_TRUE(value.starts_with(begin)) << value;
        EXPECT_NE(value.npos, value.find(row.at(2))) << value;
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
