#include "commands/play.h"

#include "media/recording.h"

namespace tool {

Outcome Play(const PlaySettings &settings, const ConsoleSettings &console, const LibraryOutput &output,
             Interruption &interruption) {
    Watchers watchers;
    Outcome failed = MakePlayingWatchers(settings.reception, console, output.Data(), watchers);
    if (!failed.IsOk()) return failed;
    return ReceiveFromServer(settings.server, settings.reception.duration, console, AudienceOf(watchers),
                             interruption);
}

} // namespace tool
