// Starts the bundled server and plays it.
#include "base/console.h"
#include "base/interruption.h"
#include "commands/audience.h"
#include "commands/commands.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr Example kExamples[] = {{"rtsptap demo", "a test picture and a tone, five seconds over UDP"},
                                 {"rtsptap demo --tcp --auth", "inside the RTSP connection, with a password"}};

constexpr const char *kNotes[] = {
    "The server, rtsptap_demo_server, is looked for beside rtsptap and in PATH. It carries its clip, listens "
    "on "
    "127.0.0.1 and ends with the command."};

struct DemoSettings {
    bool tcp = false;  // inside the RTSP connection
    bool auth = false; // the server asks for a password
    std::chrono::milliseconds duration{5000};
};

using std::chrono::milliseconds;

constexpr const char *kProgram = "rtsptap_demo_server";
constexpr auto kStartLimit = std::chrono::seconds(20);
constexpr auto kEndLimit = std::chrono::seconds(3);
constexpr auto kLook = milliseconds(20);

// Beside this program, or just the name, to be looked for in PATH.
std::string FindProgram() {
    char self[PATH_MAX] = {};
    if (readlink("/proc/self/exe", self, sizeof self - 1) > 0) {
        const std::string path = std::string(self).substr(0, std::string(self).rfind('/') + 1) + kProgram;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return kProgram;
}

// Signals reach it, and Ctrl-C on the terminal does not: the session with it ends first.
class SpawnRules {
public:
    explicit SpawnRules(int output) {
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    }
    ~SpawnRules() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    SpawnRules(const SpawnRules &) = delete;
    SpawnRules &operator=(const SpawnRules &) = delete;

    int Spawn(const std::string &program, char *const *arguments, pid_t &pid) const {
        return posix_spawnp(&pid, program.c_str(), &actions_, &attributes_, arguments, environ);
    }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

Outcome NotStarted(int error) {
    if (error == ENOENT)
        return {ExitCode::kUsage, std::string(kProgram) + " is neither beside rtsptap nor in PATH"};
    return {ExitCode::kUsage, std::string(kProgram) + ": " + std::strerror(error)};
}

bool WaitForEnd(pid_t pid, milliseconds limit) {
    for (milliseconds waited{0}; waited < limit; waited += kLook) {
        if (waitpid(pid, nullptr, WNOHANG) != 0) return true;
        usleep(static_cast<useconds_t>(std::chrono::microseconds(kLook).count()));
    }
    return false;
}

// The server as a process of its own, for as long as this object lives.
class DemoServer {
public:
    DemoServer() = default;
    ~DemoServer(); // ends the process
    DemoServer(const DemoServer &) = delete;
    DemoServer &operator=(const DemoServer &) = delete;

    // From the program's own directory, or PATH; waits until it has told its address.
    Outcome Start(const std::vector<std::string> &arguments, Interruption &interruption);
    const std::string &Url() const { return url_; }

private:
    Outcome ReadUrl(Interruption &interruption);

    pid_t pid_ = -1;
    int output_ = -1; // its standard output
    std::string url_;
};

DemoServer::~DemoServer() {
    if (output_ >= 0) close(output_);
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    if (WaitForEnd(pid_, kEndLimit)) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

Outcome DemoServer::Start(const std::vector<std::string> &arguments, Interruption &interruption) {
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) return NotStarted(errno);
    output_ = ends[0];
    std::string program = FindProgram();
    std::vector<std::string> texts = arguments;
    std::vector<char *> pointers = {program.data()};
    for (std::string &text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const int error = SpawnRules(ends[1]).Spawn(program, pointers.data(), pid_);
    close(ends[1]);
    if (error == 0) return ReadUrl(interruption);
    pid_ = -1;
    return NotStarted(error);
}

// One line is all it says there.
Outcome DemoServer::ReadUrl(Interruption &interruption) {
    for (milliseconds waited{0}; waited < kStartLimit; waited += kLook) {
        if (const int signal = interruption.WaitFor(milliseconds(0)); signal != 0) return OutcomeOfSignal(signal);
        pollfd readable = {output_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(kLook.count())) <= 0) continue;
        char bytes[256];
        const ssize_t count = read(output_, bytes, sizeof bytes);
        if (count <= 0) break;
        url_.append(bytes, static_cast<std::size_t>(count));
        if (url_.back() != '\n') continue;
        url_.pop_back();
        return {};
    }
    return {ExitCode::kUnreachable, std::string(kProgram) + " did not start"};
}

Outcome Demo(const DemoSettings &settings, const LibraryOutput &output, Interruption &interruption) {
    const std::string credentials = "viewer:a-running-clock"; // it listens on this machine only
    DemoServer server;
    std::vector<std::string> arguments;
    if (settings.auth) arguments = {"--auth", credentials};
    if (Outcome failed = server.Start(arguments, interruption); !failed.IsOk()) return failed;
    PrintNotice("playing " + server.Url() + (settings.tcp ? " over TCP" : ""));
    ServerSettings played;
    played.url = server.Url();
    if (settings.auth) played.url.insert(played.url.find("://") + 3, credentials + "@");
    played.transport = settings.tcp ? Transport::kTcp : Transport::kAuto;
    ReceptionSettings reception;
    reception.duration = settings.duration;
    return Play(played, reception, output, interruption);
}

} // namespace

Command DemoCommand() {
    const auto settings = std::make_shared<DemoSettings>();
    return {.name = "demo",
            .summary = "play the bundled demo server",
            .examples = kExamples,
            .notes = kNotes,
            .argument = {},
            .groups = {{"Demo",
                        {{"--tcp", "", "receive inside the RTSP connection", Switch(settings->tcp)},
                         {"--auth", "", "let the server ask for a password", Switch(settings->auth)}}},
                       DurationOptions(settings->duration, "5s")},
            .run = [settings](const LibraryOutput &output, Interruption &interruption) {
                return Demo(*settings, output, interruption);
            }};
}

} // namespace tool
