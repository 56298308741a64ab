// A command as one record: the command line is parsed by it, and --help, the man page and the completions are made
// of it, so that none of them can tell another story. Each file of commands/ makes one.
#pragma once

#include "base/outcome.h"
#include "base/text.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace tool {

class Interruption;
class LibraryOutput;

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

struct Example {
    const char *line;
    const char *purpose; // may be empty
};

struct Command {
    std::string name;
    std::string summary;
    std::span<const Example> examples;  // the first one is also the program's
    std::span<const char *const> notes; // paragraphs
    Option argument;                    // told by its place, as "url" with the value "URL"; without a name: none
    std::vector<OptionGroup> groups;    // they, and the argument, set what run reads
    std::function<Outcome(const LibraryOutput &output, Interruption &interruption)> run;
    std::function<std::string()> check = {}; // what is wrong with the options together, or nothing
};

struct Manual {
    std::vector<Command> commands;
    OptionGroup general; // options that every command takes
};

// "-t" and "--transport" of "-t,--transport".
inline std::vector<std::string> NamesOf(const Option &option) { return Split(option.names, ','); }

// Those that need no value, or take one behind "=" only, do not.
inline bool TakesNextWord(const Option &option) { return !option.value.empty() && option.value[0] != '['; }

// Of all groups.
std::vector<Option> OptionsOf(const Command &command);

std::vector<std::string> CommandNames(const Manual &manual);

struct CommandLine {
    const Command *command = nullptr; // of the manual; null, where a page is asked for: the whole program
    std::string page;                 // "help", "version" or "man" instead, which are asked for by options
};

// Fills line. A refusal is one sentence and, on a second line, where to read on; it never repeats an argument that
// may hold a password.
Outcome ParseCommandLine(int argc, char **argv, const Manual &manual, CommandLine &line);

// For --help: of a command, or, without one, of the whole program.
std::string HelpText(const Manual &manual, const Command *command);

// Section 1 of the system's manual, as troff.
std::string ManPage(const Manual &manual, const std::string &version);

} // namespace tool
