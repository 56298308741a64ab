#include "commands/play.h"

#include "commands/audience.h"

namespace tool {

Outcome Play(const PlaySettings &settings, const LibraryOutput &output, Interruption &interruption) {
    Watchers watchers;
    Outcome failed = MakePlayingWatchers(settings.reception, output.Data(), watchers);
    if (!failed.IsOk()) return failed;
    return ReceiveFromServer(settings.server, settings.reception.duration, AudienceOf(watchers), interruption);
}

} // namespace tool
