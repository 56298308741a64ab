#include "record.h"

#include "recording.h"

namespace tool {
namespace {

constexpr auto kSilenceLimit = std::chrono::seconds(10); // a server that sends nothing for so long has ended

} // namespace

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kRecordings, output.Data(), file);
    if (!failed.IsOk()) return failed;
    std::optional<Session> session;
    if (failed = OpenSession(settings.play, session); !failed.IsOk()) return failed;
    const std::vector<StreamFormat> streams = FormatsOfSession(*session, session->Streams());
    std::unique_ptr<PacketSink> sink;
    Outcome outcome = MakeSink(file, streams, sink);
    if (outcome.IsOk())
        outcome = ReceiveAndRecord(*session, streams, *sink, {settings.play.duration, kSilenceLimit},
                                   settings.output.split, interruption);
    session->Teardown();
    return outcome;
}

} // namespace tool
