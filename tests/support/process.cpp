#include "tests/support/process.h"

#include <csignal>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace rtsptap::test {
namespace {

using Clock = std::chrono::steady_clock;

void Rest() { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }

std::string TextFrom(int file, std::size_t at) {
    std::string text;
    char bytes[4096];
    for (ssize_t count; (count = pread(file, bytes, sizeof bytes, static_cast<off_t>(at + text.size()))) > 0;)
        text.append(bytes, static_cast<std::size_t>(count));
    return text;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &arguments)
    : outputFile_(memfd_create("output", MFD_CLOEXEC)), errorFile_(memfd_create("errors", MFD_CLOEXEC)) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(outputFile_, STDOUT_FILENO);
    dup2(errorFile_, STDERR_FILENO);
    execvp(argv[0], argv.data());
    _exit(127);
}

ChildProcess::~ChildProcess() {
    Signal(SIGTERM);
    if (Wait(std::chrono::seconds(5)) < 0) Signal(SIGKILL);
    Wait(std::chrono::seconds(5));
    close(outputFile_);
    close(errorFile_);
}

std::string ChildProcess::Output() const { return TextFrom(outputFile_, bytesRead_); }
std::string ChildProcess::Errors() const { return TextFrom(errorFile_, 0); }

std::string ChildProcess::ReadLine(std::chrono::seconds limit) {
    for (const Clock::time_point end = Clock::now() + limit; Clock::now() < end; Rest()) {
        const std::string text = Output();
        const std::size_t newline = text.find('\n');
        if (newline == std::string::npos) continue;
        bytesRead_ += newline + 1;
        return text.substr(0, newline);
    }
    return "";
}

void ChildProcess::Signal(int signal) const {
    if (pid_ > 0) kill(pid_, signal);
}

int ChildProcess::Wait(std::chrono::seconds limit) {
    int status = 0;
    for (const Clock::time_point end = Clock::now() + limit; pid_ > 0 && waitpid(pid_, &status, WNOHANG) == 0;
         Rest())
        if (Clock::now() >= end) return -1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace rtsptap::test
