#include "tests/support/texts.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <regex>
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

namespace rtsptap::test {

std::vector<std::vector<std::string>> Rows(const std::string &file) {
    std::ifstream lines(TEST_DATA_DIR "/" + file);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> &row = rows.emplace_back();
        for (std::size_t at = 0; at != std::string::npos;) {
            const std::size_t end = line.find(" => ", at);
            row.push_back(Literal(line.substr(at, end - at)));
            at = end == std::string::npos ? end : end + 4;
        }
    }
    EXPECT_GT(rows.size(), 0U) << file;
    return rows;
}

std::string Literal(std::string text) {
    for (std::size_t at = 0; (at = text.find("\\x", at)) != std::string::npos; ++at)
        text.replace(at, 4, 1, static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)));
    for (std::smatch found; std::regex_search(text, found, std::regex("<([0-9]+)\\*([^>]*)>"));) {
        std::string repeated;
        for (int i = std::stoi(found[1]); i > 0; --i) repeated += found[2];
        text = found.prefix().str() + repeated + found.suffix().str();
    }
    return text;
}

std::string Lines(std::string text, const char *end) { return std::regex_replace(text, std::regex("\\|"), end); }

std::string OnOneLine(std::string text) { return std::regex_replace(text, std::regex("\r?\n"), "|"); }

std::string ContentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Hex(const uint8_t *bytes, int64_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string digits;
    for (int64_t i = 0; i < size; ++i) digits += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    return digits;
}

std::size_t CountOf(const std::string &text, const std::string &part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

} // namespace rtsptap::test
