// The command line: which commands take which options, and what was given.
#pragma once

#include "base/settings.h"
#include "cli/manual.h"
#include "commands/listen.h"
#include "media/output_file.h"

namespace tool {

struct CommandLine {
    std::string command; // also "help", "version" and "man", which are asked for by options
    std::string topic;   // the command that help is for; empty: all of them

    ServerSettings server;
    ReceptionSettings reception;
    OutputSettings output;
    ConsoleSettings console;
    ListenSettings listen;
    std::chrono::milliseconds pictureLimit{10000};
    std::chrono::milliseconds reportDuration{60000};
    std::chrono::milliseconds demoDuration{5000};
    bool json = false; // of probe
    bool demoTcp = false;
    bool demoAuth = false;
    std::string shell; // of completion
};

// All commands with their options, which set the fields of line.
Manual MakeManual(CommandLine &line);

// Fills line. A refusal is one sentence and, on a second line, where to read on; it never repeats an argument that
// may hold a password.
Outcome ParseCommandLine(int argc, char **argv, CommandLine &line);

} // namespace tool
