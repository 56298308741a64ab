// What commands that receive have in common: who watches, and what packets are written to.
#pragma once

#include "base/settings.h"
#include "media/output_file.h"
#include "reception/receive.h"
#include "session/library_output.h"

#include <memory>
#include <vector>

namespace tool {

constexpr const char *kUntilInterrupted = "until interrupted"; // how long reception lasts otherwise

using Watchers = std::vector<std::unique_ptr<Watcher>>;

// The watchers that the settings ask for, in the order in which they are finished. Files are opened: call it before
// anything is connected. The table of what arrived goes to standard output, unless the figures do.
Outcome MakePlayingWatchers(const ReceptionSettings &settings, FILE *standardOutput, Watchers &watchers);

// The same for a recording: progress instead of the live view where the length is known, the table on standard
// error unless quiet, and a last line about the file.
Outcome MakeRecordingWatchers(const ReceptionSettings &settings, const OutputFile &file, FILE *standardOutput,
                              Watchers &watchers);

// Receives, and shows what arrives.
Outcome Play(const ServerSettings &server, const ReceptionSettings &settings, const LibraryOutput &output,
             Interruption &interruption);

// What is wrong with a recording and figures that both go to standard output.
std::string CheckStandardOutput(const OutputSettings &output, const ReceptionSettings &settings);

// How long the file's sink waits for late packets. The session then holds none back: a capture has them as they
// come.
std::chrono::milliseconds WaitingInOrder(ServerSettings &server);

// Who watches; with a file, packets go there. Both outlive the audience.
Audience AudienceOf(const Watchers &watchers);
Audience AudienceOf(const Watchers &watchers, const OutputFile &file);

} // namespace tool
