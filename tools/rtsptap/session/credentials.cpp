#include "session/credentials.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr std::size_t kLongest = 1023; // what a client has room for
constexpr auto kLook = std::chrono::milliseconds(20);

// The controlling terminal with its echo off, for as long as this lives.
class SilentTerminal {
public:
    SilentTerminal() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (terminal_ < 0 || tcgetattr(terminal_, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        usable_ = tcsetattr(terminal_, TCSAFLUSH, &silent) == 0;
    }
    ~SilentTerminal() {
        if (usable_) tcsetattr(terminal_, TCSAFLUSH, &before_);
        if (usable_) Say("\n");
        if (terminal_ >= 0) close(terminal_);
    }
    SilentTerminal(const SilentTerminal &) = delete;
    SilentTerminal &operator=(const SilentTerminal &) = delete;

    bool IsUsable() const { return usable_; }
    void Say(const std::string &text) const {
        if (write(terminal_, text.data(), text.size()) < 0) std::clearerr(stderr); // then it is asked for unseen
    }
    bool HasLine() const {
        pollfd waiting{terminal_, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }
    std::string Line() const {
        char text[kLongest + 2];
        const ssize_t length = read(terminal_, text, sizeof text);
        std::string line(text, length > 0 ? static_cast<std::size_t>(length) : 0);
        return line.substr(0, line.find('\n'));
    }

private:
    const int terminal_;
    termios before_{};
    bool usable_ = false;
};

Outcome AskForPassword(const std::string &user, const Url &url, Interruption &interruption, std::string &password) {
    const SilentTerminal terminal;
    if (!terminal.IsUsable()) return {}; // the server may do without
    terminal.Say("Password of " + user + " at " + url.host + ": ");
    while (!terminal.HasLine())
        if (const int signal = interruption.WaitFor(kLook); signal != 0) return OutcomeOfSignal(signal);
    password = terminal.Line();
    return {};
}

Outcome ReadPasswordFile(const std::string &name, std::string &password) {
    errno = 0; // stays so when the file is empty
    const bool isInput = name == "-";
    const std::unique_ptr<FILE, int (*)(FILE *)> file(
        isInput ? fdopen(dup(STDIN_FILENO), "r") : std::fopen(name.c_str(), "re"), std::fclose);
    char line[kLongest + 3] = {}; // with CR and LF
    if (file == nullptr || std::fgets(line, sizeof line, file.get()) == nullptr)
        return {ExitCode::kUsage, "--password-file: " + (isInput ? "standard input" : name) + ": " +
                                      (errno != 0 ? std::strerror(errno) : "it is empty")};
    password = std::string(line, std::strcspn(line, "\r\n"));
    return {};
}

} // namespace

Outcome ReadCredentials(const ServerSettings &settings, const Url &url, Interruption &interruption,
                        Credentials &credentials) {
    const bool ownUser = settings.user.empty() || settings.user == url.user;
    const char *const environment = std::getenv("RTSPTAP_PASSWORD");
    credentials.user = settings.user.empty() ? url.user : settings.user;
    if (!settings.passwordFile.empty() && credentials.user.empty())
        return {ExitCode::kUsage, "--password-file: whose password? Give the user with -u"};
    if (credentials.user.empty()) return {};
    Outcome outcome;
    if (!settings.passwordFile.empty())
        outcome = ReadPasswordFile(settings.passwordFile, credentials.password);
    else if (ownUser && !url.password.empty())
        credentials.password = url.password;
    else if (environment != nullptr)
        credentials.password = environment;
    else
        outcome = AskForPassword(credentials.user, url, interruption, credentials.password);
    if (outcome.IsOk() && (credentials.user.size() > kLongest || credentials.password.size() > kLongest))
        return {ExitCode::kUsage, "user name and password have at most 1023 characters each"};
    const auto isControl = [](unsigned char letter) { return letter < ' ' || letter == 0x7F; };
    if (outcome.IsOk() && std::any_of(credentials.user.begin(), credentials.user.end(), isControl))
        return {ExitCode::kUsage, "the user name has a control character"};
    return outcome;
}

} // namespace tool
