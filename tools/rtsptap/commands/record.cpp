#include "commands/record.h"

#include "commands/audience.h"

namespace tool {

Outcome Record(const RecordSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kRecordings, output.Data(), interruption, file);
    if (!failed.IsOk()) return failed;
    Watchers watchers;
    failed = MakeRecordingWatchers(settings.reception, file, output.Data(), watchers);
    if (!failed.IsOk()) return failed;
    ServerSettings server = settings.server;
    file.latency = WaitingInOrder(server);
    return ReceiveFromServer(server, settings.reception.duration, AudienceOf(watchers, file), interruption);
}

} // namespace tool
