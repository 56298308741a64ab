#include "commands/snapshot.h"

#include "commands/audience.h"

namespace tool {

Outcome Snapshot(const SnapshotSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    OutputFile file;
    Outcome failed = ChooseOutput(settings.output, kPictures, output.Data(), interruption, file);
    if (!failed.IsOk()) return failed;
    ServerSettings server = settings.server;
    server.idleTimeout = {}; // the limit is one for everything
    file.latency = WaitingInOrder(server);
    return ReceiveFromServer(server, settings.limit, AudienceOf({}, file), interruption);
}

} // namespace tool
