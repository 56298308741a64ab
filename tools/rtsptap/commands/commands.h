// The commands: one file each, which makes the record and runs what it describes.
#pragma once

#include "base/settings.h"
#include "cli/options.h"

namespace tool {

Command ProbeCommand();
Command PlayCommand();
Command RecordCommand();
Command SnapshotCommand();
Command ListenCommand();
Command ReportCommand();
Command DemoCommand();
Command CompletionCommand();

// In the order in which they are shown. The general options set the fields of console.
inline Manual MakeManual(ConsoleSettings &console) {
    return {{ProbeCommand(), PlayCommand(), RecordCommand(), SnapshotCommand(), ListenCommand(), ReportCommand(),
             DemoCommand(), CompletionCommand()},
            GeneralOptions(console)};
}

} // namespace tool
