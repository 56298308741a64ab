#include "base/console.h"

#include "base/outlet.h"
#include "base/text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr std::size_t kUsualColumns = 80;
constexpr char kEscape = '\033';

std::mutex gblLock;                // guards the next and what is written to standard error here
std::vector<std::string> gblLines; // those drawn; the cursor is below them
ConsoleSettings gblSettings;       // constant once there is more than one thread

// Back to the margin of the first drawn line, and away with all of them.
std::string Erase() {
    if (gblLines.empty()) return {};
    return "\r\033[" + std::to_string(gblLines.size()) + "A\033[J";
}

std::string Draw() {
    std::string text;
    for (const std::string &line : gblLines) text += line + "\n";
    return text;
}

// Left alone at the end: there is always somebody who may write.
Outlet &Error() {
    static auto *const outlet = new Outlet(STDERR_FILENO);
    return *outlet;
}

// At once, so that what other programs write to the terminal does not come in between.
void Write(const std::string &text) { Error().Put(text); }

bool IsTerminal() {
    const char *kind = std::getenv("TERM");
    return isatty(STDERR_FILENO) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

// Colours take no room.
std::string CutTo(const std::string &line, std::size_t columns) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == kEscape)
            i = std::min(line.find('m', i), line.size());
        else if (++used > columns)
            return line.substr(0, i) + "\033[0m";
    }
    return line;
}

} // namespace

void SetUpConsole(const ConsoleSettings &settings) { gblSettings = settings; }

void PrintNotice(const std::string &text) {
    if (!gblSettings.quiet) PrintLine("rtsptap: " + Printable(text));
}

void PrintError(const std::string &text) {
    std::vector<std::string> lines = Split(text, '\n');
    for (std::string &line : lines) line = Printable(line);
    PrintLine("rtsptap: " + Joined(lines, "\n"));
}

void PrintLine(const std::string &line) {
    const std::lock_guard guard(gblLock);
    Write(Erase() + line + "\n" + Draw());
}

void DrawLines(const std::vector<std::string> &lines) {
    if (!MayRedraw()) return;
    const std::lock_guard guard(gblLock);
    Error().Pass();
    if (!Error().IsEmpty() && !lines.empty()) return; // nobody looks just now
    const std::string erase = Erase();
    gblLines.clear();
    const std::size_t columns = TerminalColumns();
    for (const std::string &line : lines) gblLines.push_back(CutTo(line, columns));
    Write(erase + Draw());
}

void KeepLines() {
    const std::lock_guard guard(gblLock);
    gblLines.clear();
}

void PassLines() {
    const std::lock_guard guard(gblLock);
    Error().Pass();
}

void FlushLines() {
    const std::lock_guard guard(gblLock);
    Error().Flush();
}

bool IsQuiet() { return gblSettings.quiet; }

// What the library prints would tear redrawn lines apart.
bool MayRedraw() { return !gblSettings.quiet && !gblSettings.verbose && IsTerminal(); }

bool MayUseColor() {
    const char *refusal = std::getenv("NO_COLOR");
    return gblSettings.color && IsTerminal() && (refusal == nullptr || *refusal == '\0');
}

std::size_t TerminalColumns() { return ColumnsOf(stderr); }

std::size_t ColumnsOf(FILE *file) {
    winsize size = {};
    const bool known = ioctl(fileno(file), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualColumns;
}

} // namespace tool
