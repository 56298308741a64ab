// rtsptap: from the command line to a command. Data goes to standard output, everything else to standard error.
#include "base/background.h"
#include "base/console.h"
#include "base/interruption.h"
#include "base/writing.h"
#include "commands/commands.h"
#include "rtsptap.h"
#include "session/library_output.h"

#include <CLI/Version.hpp>
#include <nlohmann/json.hpp>

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <system_error>
#include <unistd.h>

#ifdef RTSPTAP_WITH_GSTREAMER
#include <gst/gst.h>
#endif
#ifdef RTSPTAP_WITH_LIBPCAP
#include <pcap/pcap.h>
#endif

namespace tool {
namespace {

#ifdef __clang__
constexpr const char *kCompiler = "clang++ " __clang_version__;
#else
constexpr const char *kCompiler = "g++ " __VERSION__;
#endif

std::string GstreamerVersion() {
#ifdef RTSPTAP_WITH_GSTREAMER
    char *text = gst_version_string();
    const std::string version = text;
    g_free(text);
    return version;
#else
    return "GStreamer: absent; only packets are recorded, no media and no pictures";
#endif
}

std::string PcapVersion() {
#ifdef RTSPTAP_WITH_LIBPCAP
    return pcap_lib_version();
#else
    return "libpcap: absent; no captures";
#endif
}

// The file that the functions come from; its name ends in its version.
std::string LibraryFile() {
    Dl_info info = {};
    if (dladdr(reinterpret_cast<const void *>(&RTSPClientCreate), &info) == 0) return "unknown";
    char path[PATH_MAX] = {};
    return realpath(info.dli_fname, path) != nullptr ? path : info.dli_fname;
}

// For --version: also the compiler, the libraries and those that are missing.
std::string BuildFacts() {
    const std::string json = std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                             std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." +
                             std::to_string(NLOHMANN_JSON_VERSION_PATCH);
    return "rtsptap " RTSPTAP_VERSION "\nlibrary: " + LibraryFile() + "\nbuild: " RTSPTAP_BUILD_TYPE ", " +
           kCompiler + "\n" + OpenSSL_version(OPENSSL_VERSION) + "\nCLI11 " CLI11_VERSION "\nnlohmann-json " +
           json + "\n" + GstreamerVersion() + "\n" + PcapVersion() + "\n";
}

Outcome Run(const Command &command, const ConsoleSettings &console) {
    SetUpConsole(console);
    Interruption interruption;
    const LibraryOutput output(console.verbose);
    return QuietIfAbandoned(command.run(output, interruption), output.Data());
}

std::string PageOf(const Manual &manual, const CommandLine &line) {
    if (line.page == "help") return HelpText(manual, line.command);
    return line.page == "version" ? BuildFacts() : ManPage(manual, RTSPTAP_VERSION);
}

Outcome ParseAndRun(int argc, char **argv) {
    try {
        ConsoleSettings console;
        const Manual manual = MakeManual(console);
        CommandLine line;
        const Outcome refused = ParseCommandLine(argc, argv, manual, line);
        if (!refused.IsOk()) return refused;
        if (line.page.empty()) return Run(*line.command, console);
        return WriteText(stdout, PageOf(manual, line), kStandardOutput);
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
} // namespace tool

int main(int argc, char **argv) {
    tool::OpenIfClosed(STDIN_FILENO);
    tool::OpenIfClosed(STDERR_FILENO);
    const tool::Outcome outcome = tool::ParseAndRun(argc, argv);
    const bool isSignal = outcome.code > tool::ExitCode::kSignal;
    const std::string text = outcome.text.empty() && !isSignal ? tool::MeaningOf(outcome.code) : outcome.text;
    if (!outcome.IsOk() && !text.empty()) tool::PrintError(text);
    tool::EndProcess(static_cast<int>(outcome.code));
}
