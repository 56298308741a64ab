#include "platform/text.h"
#include "rtsp/message/authentication.h"
#include "rtsp/client/client.h"
#include "rtp/interleaved/connection.h"
#include "rtsp/message/response.h"

#include <gtest/gtest.h>

using namespace rtsptap;

namespace {

void StoreFrom(RTSPClient &client, const std::string &header) {
    std::string text = "RTSP/1.0 401 Unauthorized\r\n" + header + "\r\n\r\n";
    const RecvBuffer buffer{static_cast<int32_t>(text.size()), text.data()};
    const ResponseMsgPtr response(ClientParseMessage(&buffer));
    StoreChallenge(client, *response);
}

} // namespace

TEST(Challenge, ReplacesWhatItNamesAndNothingElse) {
    const std::string long300(300, '%'); // cut at the field's size
    const struct {
        std::string header, type, realm, nonce;
        uint32_t authRequired;
    } cases[] = {
        {"WWW-Authenticate:  ,Basic realm=\"cam\"", "Basic", "cam", "old", 1},
        {"WWW-Authenticate: Digest realm=\"front, back\"", "Digest", "fron", "old", 1},
        {"WWW-Authenticate: Digest realm=cam, nonce=\"\"", "Digest", "a", "", 1},
        {"WWW-Authenticate: Digest Realm=\"cam\", xnonce=\"1\"", "Digest", "old", "old", 1},
        {"WWW-Authenticate:", "old", "old", "old", 0},
        {"WWW-Authenticate: , ,", "old", "old", "old", 0},
        {"www-authenticate: Digest realm=\"" + long300 + "\",  nonce=\"" + long300 + "\", stale=FALSE", "Digest",
         long300.substr(0, 255), long300.substr(0, 127), 1},
        {"CSeq: 1", "old", "old", "old", 0},
    };
    for (const auto &[header, type, realm, nonce, authRequired] : cases) {
        RTSPClient client{};
        for (char *field : {client.authType, client.realm, client.nonce}) CopyText(field, 128, "old");
        StoreFrom(client, header);
        EXPECT_EQ(client.authType, type) << header;
        EXPECT_EQ(client.realm, realm) << header;
        EXPECT_EQ(client.nonce, nonce) << header;
        EXPECT_EQ(client.authRequired, authRequired) << header;
    }
}

TEST(Authorization, GivesTheSchemeBackAndTheDigestOfTheMethod) {
    RTSPClient client{};
    CopyText(client.authType, "Basic");
    CopyText(client.realm, "testrealm@host.com");
    CopyText(client.nonce, "dcd98b7102dd2f0e8b11d0f600bfb0c093");
    CopyText(client.username, "Mufasa");
    CopyText(client.password, "Circle Of Life");
    const HeapText value(GenerateRTSPAuthenticationRequest(&client, "rtsp://10.0.0.5:554/live", RTSP_TEARDOWN));
    EXPECT_STREQ(value.get(), "Basic username=\"Mufasa\", realm=\"testrealm@host.com\", "
                              "nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", uri=\"rtsp://10.0.0.5:554/live\", "
                              "response=\"2efb17bb01d5be5aa7f6808adb0f1771\"");
}
