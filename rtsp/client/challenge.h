// Cuts up the WWW-Authenticate header of a 401 and stores the challenge in the client. Application thread.
#pragma once

namespace rtsptap {

struct ResponseMsg;
struct RTSPClient;

// Stores authType, realm and nonce and sets authRequired, so that every further request carries Authorization.
// A response without a challenge changes nothing.
void StoreChallenge(RTSPClient &client, ResponseMsg &response);

} // namespace rtsptap
