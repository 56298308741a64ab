// What the program offers, as data: parsing, --help, the man page and the completions all read these records, so
// that none of them can tell another story.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tool {

// Takes one value into a settings record; answers what is wrong with it, or nothing.
using Reader = std::function<std::string(const std::string &text)>;

struct Option {
    std::string names; // "-t,--transport"
    std::string value; // "FILE", "TIME", "udp|tcp"; "[=N]": may be left out; empty: a switch
    std::string help;
    Reader read; // once for each time the option is given
    bool isRequired = false;
    std::vector<std::string> words = {}; // that shells complete the value with, where it names none itself
    bool mayBeSecret = false;            // a refusal does not repeat the value
};

struct OptionGroup {
    std::string title;
    std::vector<Option> options;
};

// An argument that is told by its place.
struct Argument {
    std::string name; // "URL", or its words, "bash|zsh|fish"; empty: the command takes none
    Reader read;
};

struct Example {
    std::string line;
    std::string purpose;
};

// The text of a command. Its first example is also the program's own.
struct CommandText {
    std::string name;
    std::string summary;
    std::vector<Example> examples;
    std::vector<std::string> notes; // paragraphs
};

struct Command {
    CommandText text;
    Argument argument;
    std::vector<OptionGroup> groups;
};

struct Manual {
    std::vector<Command> commands;
    OptionGroup general; // options that every command takes
};

// "-t" and "--transport" of "-t,--transport".
std::vector<std::string> NamesOf(const Option &option);

// The words that a value or argument must be one of; none when it is free.
std::vector<std::string> ChoicesOf(const std::string &value);

// The same, or the words of the option.
std::vector<std::string> CompletionsOf(const Option &option);

// "--transport auto|udp", "--reconnect[=N]".
std::string Spelled(const std::string &name, const std::string &value);

// "show something" as "Show something" and the end given.
std::string Sentence(const std::string &summary, const char *end = ".");

// "rtsptap play [OPTIONS] URL"
std::string SynopsisOf(const Command &command);

std::vector<std::string> CommandNames(const Manual &manual);

const std::vector<CommandText> &CommandTexts();

const std::vector<std::string> &ProgramNotes(); // paragraphs that hold for every command

struct Variable {
    const char *name;
    const char *meaning;
};
const std::vector<Variable> &EnvironmentVariables();

} // namespace tool
