// A line of keys, and behind the first line end packets that are to be by them: whatever they are, what is left of
// one lies in it.
#include "fuzz/fuzz_target.h"
#include "srtp/session.h"

#include <string>
#include <vector>

using namespace rtsptap;
using namespace rtsptap_srtp;

namespace {

using Unprotect = int32_t (*)(Protected &, uint8_t *, uint32_t &);

void RequireWithin(Protected &session, Unprotect unprotect, std::vector<uint8_t> packet) {
    auto size = static_cast<uint32_t>(packet.size());
    if (unprotect(session, packet.data(), size) == 0) fuzz::Require(size >= 8 && size < packet.size());
}

// Protected by ourselves it is authentic, once.
void RequireRound(Protected &session, std::vector<uint8_t> packet) {
    auto size = static_cast<uint32_t>(packet.size());
    packet.resize(packet.size() + 256);
    if (!ProtectRtcp(session, packet.data(), size, static_cast<uint32_t>(packet.size()))) return;
    fuzz::Require(size <= packet.size());
    std::vector<uint8_t> again = packet;
    auto sizeAgain = size;
    fuzz::Require(UnprotectRtcp(session, packet.data(), size) == 0);
    fuzz::Require(UnprotectRtcp(session, again.data(), sizeAgain) != 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::size_t length = std::min(fuzz::TextOf(data, size).find('\n'), size);
    const std::string line(fuzz::TextOf(data, length));
    const std::vector<uint8_t> packet(data + std::min(length + 1, size), data + size);
    Protected session;
    const bool isRead = ReadKeys(line.c_str(), session.keys);
    if (isRead) fuzz::Require(session.keys.keyCount > 0 && session.keys.window >= 64);
    if (isRead && Begin(session)) {
        RequireWithin(session, UnprotectRtp, packet);
        RequireWithin(session, UnprotectRtcp, packet);
        RequireRound(session, packet);
    }
    End(session);
    return 0;
}
