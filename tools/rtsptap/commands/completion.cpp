// What shells read to complete command lines.
#include "base/writing.h"
#include "commands/commands.h"
#include "session/library_output.h"

#include <map>

namespace tool {
namespace {

constexpr Example kExamples[] = {
    {"source <(rtsptap completion bash)", "for this shell; packages install it for all"}};

// The text in single quotes, with every character of the set behind a backslash.
std::string Quoted(const std::string &text, const std::string &escaped = "") {
    std::string quoted = "'";
    for (const char letter : text) {
        if (letter == '\'')
            quoted += "'\\''";
        else if (escaped.find(letter) != std::string::npos)
            quoted += std::string("\\") + letter;
        else
            quoted += letter;
    }
    return quoted + "'";
}

// What the value may be; none when it is free.
std::vector<std::string> WordsOf(const Option &option) {
    const bool isChoice = option.words.empty() && option.value.find('|') != std::string::npos;
    return isChoice ? Split(option.value, '|') : option.words;
}

// "h264@" is not the whole value.
bool IsBeginning(const std::string &word) { return word.back() == '@'; }

// ---- bash ----

std::string BashWords(const std::vector<Option> &options) {
    std::string words;
    for (const Option &option : options) words += " " + Joined(NamesOf(option), " ");
    return words;
}

std::string BashAction(const Option &option) {
    if (option.value == "FILE") return "_rtsptap_files \"$word\"; return";
    const std::vector<std::string> words = WordsOf(option);
    if (words.empty()) return "return";
    const bool goesOn = IsBeginning(words.front());
    return "COMPREPLY=($(compgen -W '" + Joined(words, " ") + "' -- \"$word\"))" +
           (goesOn ? "; compopt -o nospace 2>/dev/null" : "") + "; return";
}

// What may follow an option; the same option may take other words with another command.
std::string BashValues(const Manual &manual) {
    std::map<std::string, std::string> patterns; // of "command:option", by what is done
    for (const Command &command : manual.commands)
        for (const Option &option : OptionsOf(command))
            for (const std::string &name : NamesOf(option)) {
                if (!TakesNextWord(option)) continue;
                std::string &pattern = patterns[BashAction(option)];
                pattern += (pattern.empty() ? "" : "|") + command.name + ":" + name;
            }
    std::string cases;
    for (const auto &[action, pattern] : patterns) cases += "    " + pattern + ") " + action + " ;;\n";
    return cases;
}

std::string BashCompletion(const Manual &manual) {
    const std::string general = BashWords(manual.general.options);
    std::string words = "    '') words='" + Joined(CommandNames(manual), " ") + general + "' ;;\n";
    for (const Command &command : manual.commands)
        words += "    " + command.name + ") words='" + Joined(WordsOf(command.argument), " ") +
                 BashWords(OptionsOf(command)) + general + "' ;;\n";
    return R"(# bash completion for rtsptap
_rtsptap_files() {
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
    compopt -o filenames 2>/dev/null
}

_rtsptap() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
    COMPREPLY=()
    # --option=value is three words here
    if [[ $word == '=' ]]; then
        word=''
    elif [[ $before == '=' ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        )" +
           Joined(CommandNames(manual), "|") +
           R"() command=${COMP_WORDS[i]} && break ;;
        esac
    done
    case $command:$before in
)" + BashValues(manual) +
           R"(    esac
    case $command in
)" + words +
           R"(    esac
    COMPREPLY=($(compgen -W "$words" -- "$word"))
}

complete -F _rtsptap rtsptap
)";
}

// ---- zsh ----

std::string ZshValue(const Option &option) {
    const std::string &value = option.value;
    const std::vector<std::string> words = WordsOf(option);
    if (value == "FILE") return ":file:_files";
    if (words.empty()) return ":" + value + ": ";
    const std::string list = Joined(words, " ");
    return IsBeginning(words.front()) ? ":" + value + ":compadd -S \"\" " + list : ":value:(" + list + ")";
}

// One entry for each name, excluding the other: '(-t --transport)-t+[help]:value:(udp tcp)'.
std::string ZshOption(const Option &option) {
    const std::vector<std::string> names = NamesOf(option);
    std::string specifications;
    for (const std::string &name : names) {
        const bool isLong = name.size() > 2;
        std::string mark = !TakesNextWord(option) ? "" : isLong ? "=" : "+";
        std::string value = TakesNextWord(option) ? ZshValue(option) : "";
        if (option.value == "[=N]") {
            mark = "=-";
            value = "::number: ";
        }
        std::string help = Quoted(option.help, "[]:\\");
        help = help.substr(1, help.size() - 2);
        specifications +=
            " \\\n        '(" + Joined(names, " ") + ")" + name + mark + "[" + help + "]" + value + "'";
    }
    return specifications;
}

std::string ZshOptions(const std::vector<Option> &options) {
    std::string specifications;
    for (const Option &option : options) specifications += ZshOption(option);
    return specifications;
}

std::string ZshCompletion(const Manual &manual) {
    const std::string general = ZshOptions(manual.general.options);
    std::string commands;
    std::string cases;
    for (const Command &command : manual.commands) {
        commands += "\n            " + Quoted(command.name + ":" + command.summary);
        cases += "        " + command.name + ") _arguments" + general + ZshOptions(OptionsOf(command)) +
                 (command.argument.names.empty() ? "" : " \\\n        '1" + ZshValue(command.argument) + "'") +
                 " ;;\n";
    }
    return R"(#compdef rtsptap
_rtsptap() {
    local context state state_descr line
    typeset -A opt_args
    _arguments -C)" +
           general + R"( \
        '1:command:->command' '*::argument:->argument'
    case $state in
    command)
        local -a commands
        commands=()" +
           commands + R"()
        _describe command commands ;;
    argument)
        case $words[1] in
)" + cases +
           R"(        esac ;;
    esac
}

if [[ $funcstack[1] == _rtsptap ]]; then
    _rtsptap "$@"
else
    compdef _rtsptap rtsptap
fi
)";
}

// ---- fish ----

std::string FishOption(const Option &option, const std::string &condition) {
    std::string line = "complete -c rtsptap" + condition;
    for (const std::string &name : NamesOf(option))
        line += name.size() > 2 ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (TakesNextWord(option)) line += option.value == "FILE" ? " -r -F" : " -x";
    if (const std::vector<std::string> words = WordsOf(option); !words.empty())
        line += " -a " + Quoted(Joined(words, " "));
    return line + " -d " + Quoted(option.help, "\\") + "\n";
}

std::string FishCompletion(const Manual &manual) {
    std::string text = "# fish completion for rtsptap\ncomplete -c rtsptap -f\n";
    for (const Option &option : manual.general.options) text += FishOption(option, "");
    for (const Command &command : manual.commands) {
        const std::string &name = command.name;
        const std::string condition = " -n '__fish_seen_subcommand_from " + name + "'";
        text += "complete -c rtsptap -n __fish_use_subcommand -a " + name + " -d " + Quoted(command.summary, "\\") +
                "\n";
        for (const Option &option : OptionsOf(command)) text += FishOption(option, condition);
        if (const std::vector<std::string> choices = WordsOf(command.argument); !choices.empty())
            text += "complete -c rtsptap" + condition + " -a " + Quoted(Joined(choices, " ")) + "\n";
    }
    return text;
}

} // namespace

Command CompletionCommand() {
    const auto write = std::make_shared<std::string (*)(const Manual &)>();
    return {.name = "completion",
            .summary = "print the completion of a shell",
            .examples = kExamples,
            .notes = {},
            .argument = {"shell", "bash|zsh|fish", "",
                         IntoChoice<std::string (*)(const Manual &)>(
                             *write, {{"bash", BashCompletion}, {"zsh", ZshCompletion}, {"fish", FishCompletion}}),
                         true},
            .groups = {},
            .run = [write](const LibraryOutput &output, Interruption &) {
                ConsoleSettings unused;
                return WriteText(output.Data(), (*write)(MakeManual(unused)), kStandardOutput);
            }};
}

} // namespace tool
