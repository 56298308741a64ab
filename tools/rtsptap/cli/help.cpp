#include "base/console.h"
#include "cli/command.h"
#include "troff.h"

#include <algorithm>
#include <cctype>

namespace tool {
namespace {

constexpr std::size_t kMostColumns = 79;
constexpr std::size_t kTextColumn = 26; // where explanations stand

constexpr const char *kProgramNotes[] = {
    "rtsptap connects to cameras and media servers, receives their streams over UDP, multicast or inside the "
    "RTSP connection, and shows, measures or records them. A URL is rtsp://[USER[:PASSWORD]@]HOST[:PORT]/PATH, "
    "or rtsps:// through TLS, rtsph:// through HTTP, rtspsh:// through both; % and two hexadecimal digits stand "
    "for a character in user name and password.",
    "Standard output carries data only; everything else goes to standard error.",
    "Times are numbers with ms, s, m or h, as 1m30s, and seconds without; 00:01:30 is one, too. A password is "
    "never shown, also not with "
    "--verbose.",
    ("The first Ctrl-C, SIGTERM or SIGHUP ends the session at the server and completes files; a second one ends "
     "at once."),
};

struct Variable {
    const char *name;
    const char *meaning;
};

constexpr Variable kVariables[] = {
    {"RTSPTAP_PASSWORD", "The password, where neither the URL nor --password-file has one."},
    {"NO_COLOR", "When set and not empty, no colors, as with --no-color."},
};

// "show something" as "Show something" and the end given.
std::string Sentence(const std::string &summary, const char *end = ".") {
    std::string sentence = summary + end;
    sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
    return sentence;
}

// "rtsptap play [OPTIONS] URL"
std::string SynopsisOf(const Command &command) {
    return "rtsptap " + command.name + (command.groups.empty() ? "" : " [OPTIONS]") +
           (command.argument.value.empty() ? "" : " " + command.argument.value);
}

// ---- text ----

// Text from the given column on, wrapped at spaces; the line begins with what stands left of it. In a narrow
// terminal it begins further left.
std::string Column(const std::string &left, const std::string &text, std::size_t column) {
    const std::size_t columns = std::clamp<std::size_t>(ColumnsOf(stdout) - 1, 20, kMostColumns);
    column = std::min(column, columns / 3);
    std::string lines;
    std::string line = left;
    if (line.size() + 2 > column && column > 0 && !left.empty()) {
        lines = line + "\n";
        line.clear();
    }
    line.resize(std::max(line.size(), column), ' ');
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        if (line.size() + (end - begin) > columns && line.size() > column) {
            lines += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
            line.assign(column, ' ');
        }
        line += text.substr(begin, end - begin) + " ";
        begin = end + 1;
    }
    return lines + line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

std::string OptionLine(const Option &option) {
    const std::vector<std::string> names = NamesOf(option);
    const std::string left = names.size() == 1 ? "    " : names[0] + ", ";
    return Column("  " + left + names.back() + (TakesNextWord(option) ? " " : "") + option.value, option.help,
                  kTextColumn);
}

std::string GroupText(const OptionGroup &group) {
    std::string text = "\n" + group.title + "\n";
    for (const Option &option : group.options) text += OptionLine(option);
    return text;
}

std::string ExampleText(std::span<const Example> examples) {
    std::string text;
    for (const Example &example : examples)
        text += "  " + std::string(example.line) + "\n" +
                (*example.purpose == '\0' ? "" : Column("", example.purpose, 6));
    return text;
}

std::string CommandHelp(const Manual &manual, const Command &command) {
    std::string text = "Examples\n" + ExampleText(command.examples) + "\nUsage\n  " + SynopsisOf(command) + "\n\n" +
                       Column("", Sentence(command.summary), 0);
    for (const char *note : command.notes) text += "\n" + Column("", note, 0);
    for (const OptionGroup &group : command.groups) text += GroupText(group);
    return text + GroupText(manual.general);
}

std::string ProgramHelp(const Manual &manual) {
    std::string text = "Examples\n";
    for (const Command &command : manual.commands) text += "  " + std::string(command.examples.front().line) + "\n";
    text += "\nUsage\n  rtsptap COMMAND [OPTIONS] [URL]\n\nCommands; rtsptap COMMAND --help tells their options\n";
    for (const Command &command : manual.commands) text += Column("  " + command.name, command.summary, 14);
    text += GroupText(manual.general) + "\nExit status\n";
    for (const ExitStatus &status : ExitStatuses())
        text += Column("  " + std::to_string(status.number), status.meaning, 7);
    return text;
}

// ---- troff ----

using troff::Bold;
using troff::Entry;
using troff::Plain;

std::string OptionEntry(const Option &option) {
    const std::vector<std::string> names = NamesOf(option);
    std::string tag = names.size() == 1 ? "" : Bold(names[0]) + ", ";
    tag += Bold(names.back());
    if (!option.value.empty()) tag += (TakesNextWord(option) ? " " : "") + ("\\fI" + Plain(option.value) + "\\fR");
    return Entry(tag, option.help);
}

std::string ExampleLines(std::span<const Example> examples) {
    std::string text;
    for (const Example &example : examples) {
        if (*example.purpose != '\0') text += Plain(Sentence(example.purpose, ":")) + "\n.PP\n";
        text += ".nf\n.RS\n" + Plain(example.line) + "\n.RE\n.fi\n.PP\n";
    }
    return text;
}

std::string Paragraphs(std::span<const char *const> paragraphs) {
    std::string text;
    for (const char *paragraph : paragraphs) text += (text.empty() ? "" : ".PP\n") + Plain(paragraph) + "\n";
    return text;
}

std::string CommandSection(const Command &command) {
    return ".SS " + Plain(SynopsisOf(command)) + "\n" + Plain(Sentence(command.summary)) + "\n" +
           (command.notes.empty() ? "" : ".PP\n") + Paragraphs(command.notes);
}

// Groups are shared by commands: each stands once, with the names of those that take it.
struct SharedGroup {
    std::string title;
    std::string entries;
    std::string commands;
};

void AddGroup(std::vector<SharedGroup> &shared, const OptionGroup &group, const std::string &command) {
    std::string entries;
    for (const Option &option : group.options) entries += OptionEntry(option);
    for (SharedGroup &entry : shared)
        if (entry.title == group.title && entry.entries == entries) {
            entry.commands += ", " + command;
            return;
        }
    shared.push_back({group.title, entries, command});
}

std::string OptionSections(const Manual &manual) {
    std::vector<SharedGroup> groups;
    for (const Command &command : manual.commands)
        for (const OptionGroup &group : command.groups) AddGroup(groups, group, command.name);
    AddGroup(groups, manual.general, "every command");
    std::string text;
    for (const SharedGroup &group : groups)
        text += ".SS " + group.title + " (" + group.commands + ")\n" + group.entries;
    return text;
}

} // namespace

std::string HelpText(const Manual &manual, const Command *command) {
    return command == nullptr ? ProgramHelp(manual) : CommandHelp(manual, *command);
}

std::string ManPage(const Manual &manual, const std::string &version) {
    std::string page = ".TH RTSPTAP 1 \"\" \"rtsptap " + version + "\" \"User Commands\"\n";
    page += ".SH NAME\nrtsptap \\- receive real\\-time media with RTSP and RTP\n";
    page += ".SH SYNOPSIS\n.B rtsptap\n.I COMMAND\n.RI [ OPTIONS ]\n.RI [ URL ]\n.SH DESCRIPTION\n";
    page += Paragraphs(kProgramNotes);
    page += ".SH EXAMPLES\n";
    for (const Command &command : manual.commands) page += ExampleLines(command.examples);
    page += ".SH COMMANDS\n";
    for (const Command &command : manual.commands) page += CommandSection(command);
    page += ".SH OPTIONS\n" + OptionSections(manual) + ".SH EXIT STATUS\n";
    for (const ExitStatus &status : ExitStatuses())
        page += Entry(Bold(std::to_string(status.number)), status.meaning);
    page += ".SH ENVIRONMENT\n";
    for (const Variable &variable : kVariables) page += Entry(Bold(variable.name), variable.meaning);
    return page;
}

} // namespace tool
