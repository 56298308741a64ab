#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

CapturedStdout::CapturedStdout(bool discard) {
    std::fflush(stdout);
    savedFd_ = dup(STDOUT_FILENO);
    memoryFd_ = discard ? open("/dev/null", O_WRONLY | O_CLOEXEC) : memfd_create("captured stdout", MFD_CLOEXEC);
    if (savedFd_ < 0 || memoryFd_ < 0 || dup2(memoryFd_, STDOUT_FILENO) < 0) std::abort();
}

CapturedStdout::~CapturedStdout() {
    const std::string text = Text();
    dup2(savedFd_, STDOUT_FILENO);
    if (testing::Test::HasFailure())
        std::fputs(text.c_str(), stdout); // failed checks report on standard output too
    close(savedFd_);
    close(memoryFd_);
}

std::string CapturedStdout::Text() {
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(memoryFd_, 0, SEEK_CUR)), '\0');
    const ssize_t length = pread(memoryFd_, text.data(), text.size(), 0);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
}
