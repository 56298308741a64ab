// rtsptap: from the command line to a command. Data goes to standard output, everything else to standard error.
#include "session/background.h"
#include "cli/build_facts.h"
#include "cli/command_line.h"
#include "commands/demo.h"
#include "cli/exit_status.h"
#include "cli/help_text.h"
#include "commands/play.h"
#include "commands/probe.h"
#include "commands/record.h"
#include "commands/report_command.h"
#include "commands/snapshot.h"

#include <cerrno>
#include <cstring>
#include <system_error>

namespace {

using tool::CommandLine;
using tool::ExitCode;
using tool::Interruption;
using tool::LibraryOutput;
using tool::Outcome;

struct Runner {
    const char *command;
    Outcome (*run)(CommandLine &line, const LibraryOutput &output, Interruption &interruption);
};

constexpr Runner kRunners[] = {
    {"probe",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Probe({line.server, line.json}, line.console, output, interruption);
     }},
    {"play",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Play({line.server, line.reception}, line.console, output, interruption);
     }},
    {"record",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Record({line.server, line.reception, line.output}, line.console, output, interruption);
     }},
    {"snapshot",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Snapshot({line.server, line.output, line.pictureLimit}, line.console, output, interruption);
     }},
    {"listen",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         line.listen.reception = line.reception;
         line.listen.output = line.output;
         return Listen(line.listen, line.console, output, interruption);
     }},
    {"report",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return WriteReport({line.server, line.reportDuration, line.output.file}, line.console, output.Data(),
                            interruption);
     }},
    {"demo",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Demo({line.demoTcp, line.demoAuth, line.demoDuration}, line.console, output, interruption);
     }},
};

// What is only printed: no session, no signals to look after.
std::string PageOf(CommandLine &line) {
    const tool::Manual manual = MakeManual(line);
    if (line.command == "help") return HelpText(manual, line.topic);
    if (line.command == "version") return tool::BuildFacts();
    if (line.command == "man") return ManPage(manual);
    return Completion(manual, line.shell);
}

Outcome PrintPage(const std::string &page) {
    std::fputs(page.c_str(), stdout);
    if (std::fflush(stdout) == 0) return {};
    return {ExitCode::kOutputFailed, std::string("standard output: ") + std::strerror(errno)};
}

Outcome Run(CommandLine &line) {
    for (const Runner &runner : kRunners) {
        if (runner.command != line.command) continue;
        Interruption interruption;
        const LibraryOutput output(line.console.verbose);
        return runner.run(line, output, interruption);
    }
    return PrintPage(PageOf(line));
}

Outcome ParseAndRun(int argc, char **argv) {
    CommandLine line;
    try {
        const Outcome refused = ParseCommandLine(argc, argv, line);
        return refused.IsOk() ? Run(line) : refused;
    } catch (const std::system_error &error) {
        return {ExitCode::kOutputFailed, error.what()};
    } catch (const std::exception &error) {
        return {ExitCode::kUsage, error.what()};
    }
}

} // namespace

int main(int argc, char **argv) {
    const Outcome outcome = ParseAndRun(argc, argv);
    const bool isSignal = outcome.code > ExitCode::kSignal;
    const std::string text = outcome.text.empty() && !isSignal ? MeaningOf(outcome.code) : outcome.text;
    if (!outcome.IsOk() && !text.empty()) std::fprintf(stderr, "rtsptap: %s\n", text.c_str());
    tool::EndProcess(static_cast<int>(outcome.code));
}
