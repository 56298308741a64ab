#include "commands/demo_server.h"

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

} // namespace

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

} // namespace tool
