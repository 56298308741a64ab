#include "views/watchers.h"

#include "base/console.h"
#include "base/text.h"
#include "reception/observation.h"

#include <algorithm>
#include <map>

namespace tool {
namespace {

constexpr auto kLossWindow = std::chrono::seconds(1); // loss is told as what was lost in so long
constexpr double kSilenceSeconds = 2;
constexpr double kFirstSilenceSeconds = 3.5; // when nothing has come at all: another transport is tried before
constexpr const char *kMoreBuffer = "4194304";

// What is known of one stream's troubles.
struct StreamTrouble {
    Counts lossless; // the last look before the loss
    bool dropsTold = false;
    bool lossTold = false;
    bool silenceTold = false;
};

std::string SilenceCure(const StreamObservation &stream, const Observation &observation) {
    const bool began = stream.statistics.Packets() > 0;
    if (began && observation.hasServer)
        return "the server may have ended it; when all are, --reconnect begins anew";
    if (began) return "the sender may have ended it";
    if (!observation.hasServer)
        return "is the sender running, with this address and port, and does the firewall let it through?";
    if (observation.transport == Transport::kTcp) return "the server does not send it";
    return "a firewall may hold it back, --transport tcp goes through";
}

class Warnings : public Watcher {
public:
    void Show(const Observation &observation) override {
        LookAtGrant(observation.receiveBufferBytes);
        NoteSession(observation);
        for (const StreamObservation &stream : observation.streams) {
            StreamTrouble &trouble = troubles_[stream.stream.number];
            if (!trouble.dropsTold && stream.statistics.DroppedByKernel() > 0)
                TellDrops(stream, observation.receiveBufferBytes, trouble);
            if (!trouble.silenceTold && receiving_ && !MayBeSilent(stream.stream))
                LookForSilence(stream, observation, trouble);
            if (!trouble.lossTold) LookForLoss(stream, observation, trouble);
        }
    }

    Outcome Finish(const Observation &) override { return {}; }

private:
    void NoteSession(const Observation &observation) {
        const bool receiving = observation.IsPlaying() || observation.state == kWaitingForMedia;
        if (receiving && (!receiving_ || transport_ != observation.transport)) receivingSince_ = observation.now;
        receiving_ = receiving;
        transport_ = observation.transport;
    }

    void LookAtGrant(int64_t granted) {
        if (grantTold_ || granted == 0 || granted >= Session::kReceiveBufferBytes) return;
        grantTold_ = true;
        PrintNotice("the kernel grants UDP sockets " + std::to_string(granted) + " bytes of buffer, " +
                    std::to_string(Session::kReceiveBufferBytes) +
                    " were asked for: bursts may be lost. Allow more: sysctl -w net.core.rmem_max=" + kMoreBuffer);
    }

    void TellDrops(const StreamObservation &stream, int64_t granted, StreamTrouble &trouble) {
        trouble.dropsTold = dropsTold_ = true;
        const std::string cure =
            granted < Session::kReceiveBufferBytes
                ? std::string("Allow a larger one: sysctl -w net.core.rmem_max=") + kMoreBuffer
                : "This machine is too slow for the stream: give it less else to do, or try -t tcp";
        PrintNotice(NameOf(stream.stream) + ": the kernel dropped " +
                    std::to_string(stream.statistics.DroppedByKernel()) + " datagrams: a buffer of " +
                    std::to_string(granted) + " bytes was full. " + cure);
    }

    // A session's silence begins with the session.
    void LookForSilence(const StreamObservation &stream, const Observation &observation, StreamTrouble &trouble) {
        const double received = std::chrono::duration<double>(observation.now - receivingSince_).count();
        const double silence = std::min(SilenceSeconds(stream, observation), received);
        if (silence < (observation.IsPlaying() ? kSilenceSeconds : kFirstSilenceSeconds)) return;
        trouble.silenceTold = true;
        PrintNotice(NameOf(stream.stream) + " is silent, nothing arrived for " + Formatted("%.1f s", silence) +
                    ": " + SilenceCure(stream, observation));
    }

    void LookForLoss(const StreamObservation &stream, const Observation &observation, StreamTrouble &trouble) {
        const Counts now = CountsOf(stream.statistics, observation.now);
        if (now.lost <= trouble.lossless.lost) {
            trouble.lossless = now;
            return;
        }
        const Interval since = Between(trouble.lossless, now);
        if (now.at - trouble.lossless.at < kLossWindow) return;
        trouble.lossTold = true;
        PrintNotice(NameOf(stream.stream) + " loses packets, " + std::to_string(since.lost) +
                    Formatted(" (%.1f %%)", since.lossPercent) + " in the last second: " + LossCure(observation));
    }

    std::string LossCure(const Observation &observation) const {
        if (dropsTold_) return "see to the socket buffer first";
        if (!observation.hasServer) return "look at the network and the sender, or lower the bit rate";
        if (observation.transport == Transport::kTcp)
            return "the server leaves them out, or this machine is too slow for the stream";
        return "try --transport tcp, a lower bit rate, or a better network";
    }

    bool grantTold_ = false;
    bool dropsTold_ = false;                    // of any stream
    std::map<int32_t, StreamTrouble> troubles_; // by the stream's number
    bool receiving_ = false;
    Transport transport_ = Transport::kUdp;
    Clock::time_point receivingSince_;
};

} // namespace

std::unique_ptr<Watcher> MakeWarnings() { return std::make_unique<Warnings>(); }

} // namespace tool
