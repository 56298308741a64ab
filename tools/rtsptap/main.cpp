// rtsptap: from the command line to a command. Data goes to standard output, everything else to standard error.
#include "base/background.h"
#include "base/console.h"
#include "base/writing.h"
#include "cli/build_facts.h"
#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/help_text.h"
#include "commands/demo.h"
#include "commands/play.h"
#include "commands/probe.h"
#include "commands/record.h"
#include "commands/report_command.h"
#include "commands/snapshot.h"

#include <fcntl.h>
#include <system_error>
#include <unistd.h>

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
         return Probe({line.server, line.json}, output, interruption);
     }},
    {"play",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Play({line.server, line.reception}, output, interruption);
     }},
    {"record",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Record({line.server, line.reception, line.output}, output, interruption);
     }},
    {"snapshot",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Snapshot({line.server, line.output, line.pictureLimit}, output, interruption);
     }},
    {"listen",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         line.listen.reception = line.reception;
         line.listen.output = line.output;
         return Listen(line.listen, output, interruption);
     }},
    {"report",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return WriteReport({line.server, line.reportDuration, line.output.file}, output.Data(), interruption);
     }},
    {"demo",
     [](CommandLine &line, const LibraryOutput &output, Interruption &interruption) {
         return Demo({line.demoTcp, line.demoAuth, line.demoDuration}, output, interruption);
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

Outcome Run(CommandLine &line) {
    for (const Runner &runner : kRunners) {
        if (runner.command != line.command) continue;
        SetUpConsole(line.console);
        Interruption interruption;
        const LibraryOutput output(line.console.verbose);
        return QuietIfAbandoned(runner.run(line, output, interruption), output.Data());
    }
    return tool::WriteText(stdout, PageOf(line), tool::kStandardOutput);
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

// A descriptor that was closed before the start would be the number of the first socket, and what is said on
// standard error would go to the server.
void OpenIfClosed(int descriptor) {
    if (fcntl(descriptor, F_GETFD) != -1) return;
    const int nowhere = open("/dev/null", O_RDWR);
    if (nowhere == descriptor) return;
    dup2(nowhere, descriptor);
    close(nowhere);
}

} // namespace

int main(int argc, char **argv) {
    OpenIfClosed(STDIN_FILENO);
    OpenIfClosed(STDERR_FILENO);
    const Outcome outcome = ParseAndRun(argc, argv);
    const bool isSignal = outcome.code > ExitCode::kSignal;
    const std::string text = outcome.text.empty() && !isSignal ? MeaningOf(outcome.code) : outcome.text;
    if (!outcome.IsOk() && !text.empty()) tool::PrintError(text);
    tool::EndProcess(static_cast<int>(outcome.code));
}
