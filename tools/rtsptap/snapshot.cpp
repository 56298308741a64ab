#include "snapshot.h"

#include "recording.h"

namespace tool {

Outcome Snapshot(const SnapshotSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kPictures, output.Data(), file);
    if (!failed.IsOk()) return failed;
    std::optional<Session> session;
    if (failed = OpenSession(settings.play, session); !failed.IsOk()) return failed;
    const std::vector<Stream> streams = session->Streams();
    std::unique_ptr<PacketSink> sink;
    Outcome outcome = MakeSink(file, FormatsOfSession(*session, streams), sink);
    if (outcome.IsOk()) {
        interruption.BeginGraceful();
        Reception reception(*session, streams, {Into(*sink)});
        Progress none({}, {});
        const ReceptionLimits limits{settings.limit, {}};
        const Ending ending = WaitForEnd(reception, *sink, limits, none, interruption);
        outcome = ending.end == End::kSignal ? OutcomeOfSignal(ending.signal) : sink->Finish();
        reception.Stop();
    }
    session->Teardown();
    return outcome;
}

} // namespace tool
