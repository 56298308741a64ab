#include "cli/build_facts.h"
#include "cli/exit_status.h"
#include "cli/help_text.h"
#include "troff.h"

#include <algorithm>

namespace tool {
namespace {

using troff::Bold;
using troff::Entry;
using troff::Plain;

std::string OptionEntry(const Option &option) {
    const std::vector<std::string> names = NamesOf(option);
    std::string tag = names.size() == 1 ? "" : Bold(names[0]) + ", ";
    tag += Bold(names.back());
    if (!option.value.empty()) tag += (option.value[0] == '[' ? "" : " ") + ("\\fI" + Plain(option.value) + "\\fR");
    return Entry(tag, option.help);
}

std::string ExampleLines(const std::vector<Example> &examples) {
    std::string text;
    for (const Example &example : examples) {
        if (!example.purpose.empty()) text += Plain(Sentence(example.purpose, ":")) + "\n.PP\n";
        text += ".nf\n.RS\n" + Plain(example.line) + "\n.RE\n.fi\n.PP\n";
    }
    return text;
}

std::string Paragraphs(const std::vector<std::string> &paragraphs) {
    std::string text;
    for (const std::string &paragraph : paragraphs) text += (text.empty() ? "" : ".PP\n") + Plain(paragraph) + "\n";
    return text;
}

std::string CommandSection(const Command &command) {
    return ".SS " + Plain(SynopsisOf(command)) + "\n" + Plain(Sentence(command.text.summary)) + "\n" +
           (command.text.notes.empty() ? "" : ".PP\n") + Paragraphs(command.text.notes);
}

// Groups are shared by commands: each stands once, with the names of those that take it.
struct SharedGroup {
    const OptionGroup *group;
    std::string commands;
};

bool IsSame(const OptionGroup &left, const OptionGroup &right) {
    return left.title == right.title && std::equal(left.options.begin(), left.options.end(), right.options.begin(),
                                                   right.options.end(), [](const Option &one, const Option &other) {
                                                       return one.names == other.names && one.help == other.help;
                                                   });
}

std::vector<SharedGroup> SharedGroups(const Manual &manual) {
    std::vector<SharedGroup> shared;
    for (const Command &command : manual.commands)
        for (const OptionGroup &group : command.groups) {
            const auto same = std::find_if(shared.begin(), shared.end(), [&group](const SharedGroup &entry) {
                return IsSame(*entry.group, group);
            });
            if (same == shared.end())
                shared.push_back({&group, command.text.name});
            else
                same->commands += ", " + command.text.name;
        }
    return shared;
}

std::string OptionSections(const Manual &manual) {
    std::string text;
    std::vector<SharedGroup> groups = SharedGroups(manual);
    groups.push_back({&manual.general, "every command"});
    for (const SharedGroup &entry : groups) {
        text += ".SS " + entry.group->title + " (" + entry.commands + ")\n";
        for (const Option &option : entry.group->options) text += OptionEntry(option);
    }
    return text;
}

} // namespace

std::string ManPage(const Manual &manual) {
    std::string page = ".TH RTSPTAP 1 \"\" \"rtsptap " + ProgramVersion() + "\" \"User Commands\"\n";
    page += ".SH NAME\nrtsptap \\- receive real\\-time media with RTSP and RTP\n";
    page += ".SH SYNOPSIS\n.B rtsptap\n.I COMMAND\n.RI [ OPTIONS ]\n.RI [ URL ]\n.SH DESCRIPTION\n";
    page += Paragraphs(ProgramNotes());
    page += ".SH EXAMPLES\n";
    for (const Command &command : manual.commands) page += ExampleLines(command.text.examples);
    page += ".SH COMMANDS\n";
    for (const Command &command : manual.commands) page += CommandSection(command);
    page += ".SH OPTIONS\n" + OptionSections(manual) + ".SH EXIT STATUS\n";
    for (const ExitStatus &status : ExitStatuses())
        page += Entry(Bold(std::to_string(status.number)), status.meaning);
    page += ".SH ENVIRONMENT\n";
    for (const Variable &variable : EnvironmentVariables()) page += Entry(Bold(variable.name), variable.meaning);
    return page;
}

} // namespace tool
