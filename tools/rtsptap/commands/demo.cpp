#include "commands/demo.h"

#include "base/console.h"
#include "commands/demo_server.h"
#include "commands/play.h"

namespace tool {

Outcome Demo(const DemoSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    const std::string credentials = "viewer:a-running-clock"; // it listens on this machine only
    DemoServer server;
    std::vector<std::string> arguments;
    if (settings.auth) arguments = {"--auth", credentials};
    if (Outcome failed = server.Start(arguments, interruption); !failed.IsOk()) return failed;
    PrintNotice("playing " + server.Url() + (settings.tcp ? " over TCP" : ""));
    PlaySettings play;
    play.server.url = server.Url();
    if (settings.auth) play.server.url.insert(play.server.url.find("://") + 3, credentials + "@");
    play.server.transport = settings.tcp ? Transport::kTcp : Transport::kAuto;
    play.reception.duration = settings.duration;
    return Play(play, output, interruption);
}

} // namespace tool
