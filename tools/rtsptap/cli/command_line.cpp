#include "cli/command.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace tool {
namespace {

// Letters to insert, remove, replace or swap with their neighbour to make one word of the other.
std::size_t Distance(const std::string &left, const std::string &right) {
    std::vector<std::vector<std::size_t>> steps(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i)
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = steps[i - 1][j - 1] + (left[i - 1] != right[j - 1] ? 1 : 0);
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
            const bool isSwap = i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
            if (isSwap) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    return steps[left.size()][right.size()];
}

// "; did you mean --transport?", or nothing when no known word is near.
std::string Suggestion(const std::string &word, const std::vector<std::string> &known) {
    const std::string *nearest = nullptr;
    std::size_t least = 1 + word.size() / 4; // further away it is another word
    for (const std::string &candidate : known) {
        const bool isBeginning = word.size() > 3 && candidate.compare(0, word.size(), word) == 0;
        const std::size_t distance = isBeginning ? 0 : Distance(word, candidate);
        if (distance > least || (nearest != nullptr && distance == least)) continue;
        least = distance;
        nearest = &candidate;
    }
    return nearest == nullptr ? "" : "; did you mean " + *nearest + "?";
}

// CLI11 speaks in exceptions and texts; from here on this file is the only place that does.

CLI::callback_t EachInto(const Option &option) {
    return [read = option.read, names = NamesOf(option), given = option.value,
            mayBeSecret = option.mayBeSecret](const CLI::results_t &texts) {
        for (const std::string &text : texts) {
            const bool isLeftOut = given[0] == '[' && text == "true";
            if (const std::string wrong = read(isLeftOut ? "" : text); !wrong.empty())
                throw CLI::ValidationError(names.back() + (mayBeSecret ? " " : ": '" + text + "' ") + wrong);
        }
        return true;
    };
}

void AddOption(CLI::App &app, const Option &option) {
    CLI::Option *added = app.add_option(option.names, EachInto(option));
    added->type_name(option.value)->required(option.isRequired);
    added->expected(TakesNextWord(option) ? 1 : 0)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (option.value.empty()) added->disable_flag_override();
}

void AddCommand(CLI::App &app, const Command &command) {
    CLI::App *added = app.add_subcommand(command.name);
    for (const Option &option : OptionsOf(command)) AddOption(*added, option);
    if (!command.argument.names.empty()) AddOption(*added, command.argument);
}

void AddManual(CLI::App &app, const Manual &manual) {
    app.set_help_flag();
    app.fallthrough()->require_subcommand(0, 1);
    for (const Option &option : manual.general.options) AddOption(app, option);
    app.add_flag("--man"); // for the build, which installs the page
    for (const Command &command : manual.commands) AddCommand(app, command);
}

const Command *FindCommand(const Manual &manual, const std::string &name) {
    for (const Command &command : manual.commands)
        if (command.name == name) return &command;
    return nullptr;
}

std::vector<std::string> OptionNames(const Manual &manual, const Command *command) {
    std::vector<std::string> names;
    for (const Option &option : manual.general.options) names.push_back(NamesOf(option).back());
    if (command == nullptr) return names;
    for (const Option &option : OptionsOf(*command)) names.push_back(NamesOf(option).back());
    return names;
}

// Without the value: it may be a password.
std::string UnknownOption(const std::string &argument, const Manual &manual, const Command *command) {
    const std::string name = argument.substr(0, argument.find('='));
    const std::vector<std::string> known = OptionNames(manual, command);
    std::vector<std::string> same; // that begin with its letter
    for (const std::string &option : known)
        if (name.size() == 2 && option.compare(2, 1, name, 1, 1) == 0) same.push_back(option);
    const std::string hint = "; did you mean " + Joined(same, " or ") + "?";
    return "there is no option " + name + (same.empty() ? Suggestion(name, known) : hint);
}

std::string UnknownCommand(std::vector<std::string> arguments, const Manual &manual) {
    const std::string which = "a command is missing";
    if (arguments.size() > 1 && arguments.front() == "help") arguments.erase(arguments.begin());
    if (arguments.empty()) return which;
    if (arguments.front().find("://") != std::string::npos) return which + " before the address, such as play";
    return "there is no command " + arguments.front() + Suggestion(arguments.front(), CommandNames(manual));
}

Outcome Refuse(const Command *command, const std::string &why) {
    const std::string name = command == nullptr ? "" : command->name;
    return {ExitCode::kUsage, (name.empty() ? "" : name + ": ") + why + "\nSee rtsptap" +
                                  (name.empty() ? "" : " " + name) + " --help"};
}

std::string Explain(const CLI::App &app, const Manual &manual, const Command *command, const std::string &error) {
    const std::vector<std::string> left = app.remaining(true);
    for (const std::string &argument : left)
        if (argument.size() > 1 && argument[0] == '-') return UnknownOption(argument, manual, command);
    if (command == nullptr) return UnknownCommand(left, manual);
    return left.empty() ? error : "there is an argument too many";
}

// "--duration: 1 required TIME missing" says too much.
std::string Shortened(std::string error) {
    const std::string needless = "1 required ";
    const std::size_t at = error.find(needless);
    return at == std::string::npos ? error : error.erase(at, needless.size());
}

// "help play" is the same as "play --help".
bool AsksForHelp(int argc, char **argv, const Manual &manual, CommandLine &line) {
    if (argc < 2 || argc > 3 || std::string(argv[1]) != "help") return false;
    const std::string topic = argc > 2 ? argv[2] : "";
    const Command *command = FindCommand(manual, topic);
    if (!topic.empty() && command == nullptr) return false;
    line = {command, "help"};
    return true;
}

} // namespace

std::vector<Option> OptionsOf(const Command &command) {
    std::vector<Option> options;
    for (const OptionGroup &group : command.groups)
        options.insert(options.end(), group.options.begin(), group.options.end());
    return options;
}

std::vector<std::string> CommandNames(const Manual &manual) {
    std::vector<std::string> names;
    for (const Command &command : manual.commands) names.push_back(command.name);
    return names;
}

Outcome ParseCommandLine(int argc, char **argv, const Manual &manual, CommandLine &line) {
    if (AsksForHelp(argc, argv, manual, line)) return {};
    CLI::App app;
    AddManual(app, manual);
    std::string error;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &failure) {
        error = Shortened(failure.what());
    }
    if (!app.get_subcommands().empty())
        line.command = FindCommand(manual, app.get_subcommands().front()->get_name());
    for (const char *page : {"help", "version", "man"})
        if (line.page.empty() && app.count(std::string("--") + page) > 0) line.page = page;
    if (!line.page.empty()) return {};
    if (!error.empty() || line.command == nullptr)
        error = Explain(app, manual, line.command, error);
    else if (line.command->check)
        error = line.command->check();
    return error.empty() ? Outcome{} : Refuse(line.command, error);
}

} // namespace tool
