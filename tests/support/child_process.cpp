#include "tests/support/child_process.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace rtsptap::test {
namespace {

using Clock = std::chrono::steady_clock;

// Appends what is there; closes the pipe at its end.
void ReadPipe(int &pipe, std::string &text) {
    char bytes[4096];
    const ssize_t count = read(pipe, bytes, sizeof bytes);
    if (count > 0)
        text.append(bytes, static_cast<std::size_t>(count));
    else if (close(pipe) == 0)
        pipe = -1;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &arguments) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    int output[2] = {};
    int errors[2] = {};
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(output[1]);
    close(errors[1]);
    outputPipe_ = output[0];
    errorPipe_ = errors[0];
    if (pid_ < 0) throw std::runtime_error("fork");
}

ChildProcess::~ChildProcess() {
    Signal(SIGTERM);
    if (Wait(std::chrono::seconds(5)) < 0) Signal(SIGKILL);
    Wait(std::chrono::seconds(5));
    if (outputPipe_ >= 0) close(outputPipe_);
    if (errorPipe_ >= 0) close(errorPipe_);
}

std::string ChildProcess::ReadLine(std::chrono::seconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    std::size_t newline = output_.find('\n');
    while (newline == std::string::npos && outputPipe_ >= 0 && Clock::now() < end) {
        ReadSome(end);
        newline = output_.find('\n');
    }
    if (newline == std::string::npos) return "";
    const std::string line = output_.substr(0, newline);
    output_.erase(0, newline + 1);
    return line;
}

void ChildProcess::Signal(int signal) const {
    if (pid_ > 0) kill(pid_, signal);
}

int ChildProcess::Wait(std::chrono::seconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    while ((outputPipe_ >= 0 || errorPipe_ >= 0) && Clock::now() < end) ReadSome(end);
    int status = 0;
    while (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() >= end) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::ReadSome(Clock::time_point end) {
    pollfd pipes[2] = {{outputPipe_, POLLIN, 0}, {errorPipe_, POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (poll(pipes, 2, static_cast<int>(std::max<int64_t>(left, 0))) <= 0) return;
    if (pipes[0].revents != 0) ReadPipe(outputPipe_, output_);
    if (pipes[1].revents != 0) ReadPipe(errorPipe_, errors_);
}

} // namespace rtsptap::test
