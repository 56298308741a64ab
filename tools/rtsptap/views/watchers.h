// Who watches a reception, by purpose; each is a file of its own.
#pragma once

#include "base/settings.h"
#include "reception/observation.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tool {

// How it goes, while it goes: one line for each stream on standard error. On a terminal the lines are redrawn up to
// four times a second; elsewhere one is added for each stream every ten seconds.
std::unique_ptr<Watcher> MakeLiveView();

// The table of what arrived, once it is over; null: nobody wants to see it. Judges as JudgeStreams.
std::unique_ptr<Watcher> MakeFinalTable(FILE *out);

// Ok only when every stream delivered.
Outcome JudgeStreams(const std::vector<StreamObservation> &streams);

// How far a command of known length is: one line on standard error, redrawn on a terminal; elsewhere one every ten
// seconds. What is of no length is 0; split: how long one file becomes.
std::unique_ptr<Watcher> MakeProgress(std::chrono::milliseconds duration, std::chrono::milliseconds split);

// What goes wrong, said once on standard error, with what helps against it: little socket buffer, datagrams that
// the kernel dropped, a silent stream, loss.
std::unique_ptr<Watcher> MakeWarnings();

// Whether it kept to the limits that were set for it. Judges at the end: kHealthLimit names every limit that was
// not kept. Ok when nothing at all arrived, which is told in its own way.
std::unique_ptr<Watcher> MakeHealthCheck(const HealthSettings &settings);

// The figures for programs: one JSON object a second, one line each, and a summary at the end. The file is opened
// at once; "-" is standardOutput. Fails with kOutputFailed, here or in Finish.
Outcome OpenStatsJson(const std::string &file, FILE *standardOutput, std::unique_ptr<Watcher> &watcher);

} // namespace tool
