// The options of the program, one function for each group that commands share. The records they are bound to must
// outlive them.
#pragma once

#include "base/settings.h"
#include "cli/manual.h"
#include "commands/listen.h"
#include "media/output_file.h"

namespace tool {

OptionGroup ServerOptions(ServerSettings &server);
OptionGroup ConnectingOptions(ServerSettings &server);            // how long for a reply
OptionGroup WaitingOptions(ServerSettings &server);               // and for packets
OptionGroup StayingOptions(ServerSettings &server, bool records); // a session that is to last
OptionGroup DurationOptions(std::chrono::milliseconds &duration, const std::string &otherwise);
OptionGroup FigureOptions(ReceptionSettings &reception);
OptionGroup RecordingOptions(OutputSettings &output, bool isRequired);
OptionGroup PictureOptions(OutputSettings &output, std::chrono::milliseconds &limit, ServerSettings &server);
OptionGroup PortOptions(ListenSettings &listen);
OptionGroup PageOptions(OutputSettings &output);
OptionGroup GeneralOptions(ConsoleSettings &console);

} // namespace tool
