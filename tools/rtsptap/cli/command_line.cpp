#include "cli/command_line.h"

#include "cli/option_groups.h"
#include "cli/option_values.h"
#include "cli/suggestion.h"

#include <CLI/CLI.hpp>

#include <utility>

namespace tool {
namespace {

const CommandText &TextOf(const std::string &command) {
    const std::vector<CommandText> &texts = CommandTexts();
    return *std::find_if(texts.begin(), texts.end(),
                         [&command](const CommandText &text) { return text.name == command; });
}

// What every command takes that receives from a server for long.
std::vector<OptionGroup> ReceptionGroups(ServerSettings &server, std::initializer_list<OptionGroup> more,
                                         bool records = false) {
    std::vector<OptionGroup> groups = {ServerOptions(server), WaitingOptions(server),
                                       StayingOptions(server, records)};
    groups.insert(groups.begin(), more.begin(), more.end());
    return groups;
}

OptionGroup DemoOptions(CommandLine &line) {
    return {"Demo",
            {{"--tcp", "", "receive inside the RTSP connection", Into(line.demoTcp)},
             {"--auth", "", "let the server ask for a password", Into(line.demoAuth)}}};
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
    const bool isSwitch = option.value.empty() || option.value[0] == '[';
    CLI::Option *added = app.add_option(option.names, EachInto(option));
    added->type_name(option.value)->required(option.isRequired);
    added->expected(isSwitch ? 0 : 1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (option.value.empty()) added->disable_flag_override();
}

void AddCommand(CLI::App &app, const Command &command) {
    CLI::App *added = app.add_subcommand(command.text.name);
    for (const OptionGroup &group : command.groups)
        for (const Option &option : group.options) AddOption(*added, option);
    if (command.argument.name.empty()) return;
    const std::string name = command.argument.name == "URL" ? "url" : "shell";
    added->add_option(name, EachInto({name, command.argument.name, "", command.argument.read}))->required();
}

void AddManual(CLI::App &app, const Manual &manual) {
    app.set_help_flag();
    app.fallthrough()->require_subcommand(0, 1);
    for (const Option &option : manual.general.options) AddOption(app, option);
    app.add_flag("--man"); // for the build, which installs the page
    for (const Command &command : manual.commands) AddCommand(app, command);
}

std::vector<std::string> OptionNames(const Manual &manual, const std::string &command) {
    std::vector<OptionGroup> groups = {manual.general};
    for (const Command &entry : manual.commands)
        if (entry.text.name == command) groups.insert(groups.end(), entry.groups.begin(), entry.groups.end());
    std::vector<std::string> names;
    for (const OptionGroup &group : groups)
        for (const Option &option : group.options) names.push_back(NamesOf(option).back());
    return names;
}

// Without the value: it may be a password.
std::string UnknownOption(const std::string &argument, const Manual &manual, const std::string &command) {
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

Outcome Refuse(const std::string &command, const std::string &why) {
    const std::string where = command.empty() ? "" : " " + command;
    return {ExitCode::kUsage, (command.empty() ? "" : command + ": ") + why + "\nSee rtsptap" + where + " --help"};
}

std::string Explain(const CLI::App &app, const CommandLine &line, const Manual &manual, const std::string &error) {
    const std::vector<std::string> left = app.remaining(true);
    for (const std::string &argument : left)
        if (argument.size() > 1 && argument[0] == '-') return UnknownOption(argument, manual, line.command);
    if (line.command.empty()) return UnknownCommand(left, manual);
    return left.empty() ? error : "there is an argument too many";
}

// "--duration: 1 required TIME missing" says too much.
std::string Shortened(std::string error) {
    const std::string needless = "1 required ";
    const std::size_t at = error.find(needless);
    return at == std::string::npos ? error : error.erase(at, needless.size());
}

std::string CheckTogether(const CommandLine &line) {
    if (line.reception.statsJson == "-" && line.output.file == "-")
        return "--output and --stats-json cannot both go to standard output";
    return "";
}

} // namespace

Manual MakeManual(CommandLine &line) {
    const Argument url = {"URL", Into(line.server.url)};
    const Argument shells = {
        "bash|zsh|fish", IntoChoice<std::string>(line.shell, {{"bash", "bash"}, {"zsh", "zsh"}, {"fish", "fish"}})};
    const OptionGroup duration = DurationOptions(line.reception.duration, "until interrupted");
    const OptionGroup figures = FigureOptions(line.reception);
    const OptionGroup json = {"Probe", {{"--json", "", "show JSON instead of text", Into(line.json)}}};
    ServerSettings &server = line.server;
    Manual manual;
    manual.commands = {
        {TextOf("probe"), url, {json, ServerOptions(server), WaitingOptions(server)}},
        {TextOf("play"), url, ReceptionGroups(server, {duration, figures})},
        {TextOf("record"), url,
         ReceptionGroups(server, {RecordingOptions(line.output, true), duration, figures}, true)},
        {TextOf("snapshot"),
         url,
         {PictureOptions(line.output, line.pictureLimit, server), ServerOptions(server),
          ConnectingOptions(server)}},
        {TextOf("listen"), {}, {PortOptions(line.listen), RecordingOptions(line.output, false), duration, figures}},
        {TextOf("report"), url,
         ReceptionGroups(server, {PageOptions(line.output), DurationOptions(line.reportDuration, "60s")})},
        {TextOf("demo"), {}, {DemoOptions(line), DurationOptions(line.demoDuration, "5s")}},
        {TextOf("completion"), shells, {}},
    };
    manual.general = GeneralOptions(line.console);
    return manual;
}

namespace {

// "help play" is the same as "play --help".
bool AsksForHelp(int argc, char **argv, const Manual &manual, CommandLine &line) {
    if (argc < 2 || std::string(argv[1]) != "help") return false;
    const std::string topic = argc > 2 ? argv[2] : "";
    const std::vector<std::string> names = CommandNames(manual);
    if (argc > 3 || (!topic.empty() && std::find(names.begin(), names.end(), topic) == names.end())) return false;
    line.command = "help";
    line.topic = topic;
    return true;
}

} // namespace

Outcome ParseCommandLine(int argc, char **argv, CommandLine &line) {
    const Manual manual = MakeManual(line);
    if (AsksForHelp(argc, argv, manual, line)) return {};
    CLI::App app;
    AddManual(app, manual);
    std::string error;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &failure) {
        error = Shortened(failure.what());
    }
    if (!app.get_subcommands().empty()) line.command = app.get_subcommands().front()->get_name();
    for (const char *page : {"help", "version", "man"}) {
        if (app.count(std::string("--") + page) == 0) continue;
        line.topic = std::exchange(line.command, page);
        return {};
    }
    if (error.empty() && !line.command.empty())
        error = CheckTogether(line);
    else
        error = Explain(app, line, manual, error);
    return error.empty() ? Outcome{} : Refuse(line.command, error);
}

} // namespace tool
