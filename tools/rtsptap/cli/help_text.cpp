#include "cli/help_text.h"

#include "base/console.h"
#include "cli/exit_status.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::size_t kMostColumns = 79;
constexpr std::size_t kTextColumn = 26; // where explanations stand

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
    return Column("  " + left + Spelled(names.back(), option.value), option.help, kTextColumn);
}

std::string GroupText(const OptionGroup &group) {
    std::string text = "\n" + group.title + "\n";
    for (const Option &option : group.options) text += OptionLine(option);
    return text;
}

std::string ExampleText(const std::vector<Example> &examples) {
    std::string text;
    for (const Example &example : examples)
        text += "  " + example.line + "\n" + (example.purpose.empty() ? "" : Column("", example.purpose, 6));
    return text;
}

std::string CommandHelp(const Manual &manual, const Command &command) {
    std::string text = "Examples\n" + ExampleText(command.text.examples) + "\nUsage\n  " + SynopsisOf(command) +
                       "\n\n" + Column("", Sentence(command.text.summary), 0);
    for (const std::string &note : command.text.notes) text += "\n" + Column("", note, 0);
    for (const OptionGroup &group : command.groups) text += GroupText(group);
    return text + GroupText(manual.general);
}

std::string ProgramHelp(const Manual &manual) {
    std::string text = "Examples\n";
    for (const Command &command : manual.commands) text += "  " + command.text.examples.front().line + "\n";
    text += "\nUsage\n  rtsptap COMMAND [OPTIONS] [URL]\n\nCommands; rtsptap COMMAND --help tells their options\n";
    for (const Command &command : manual.commands)
        text += Column("  " + command.text.name, command.text.summary, 14);
    text += GroupText(manual.general) + "\nExit status\n";
    for (const ExitStatus &status : ExitStatuses())
        text += Column("  " + std::to_string(status.number), status.meaning, 7);
    return text;
}

} // namespace

std::string HelpText(const Manual &manual, const std::string &command) {
    for (const Command &entry : manual.commands)
        if (entry.text.name == command) return CommandHelp(manual, entry);
    return ProgramHelp(manual);
}

} // namespace tool
