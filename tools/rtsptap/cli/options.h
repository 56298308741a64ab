// From the text of an option to the field it sets, and the options that several commands have. The fields outlive
// them.
#pragma once

#include "base/settings.h"
#include "cli/command.h"
#include "media/output_file.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

Reader Into(std::string &field);                   // not empty
Reader IntoTime(std::chrono::milliseconds &field); // "200ms", "1m30s", "00:01:30", "1.5" seconds; above 0

// For an option without a value; the field takes the one given here.
template <typename Field> Reader Switch(Field &field, bool value = true) {
    return [&field, value](const std::string &) {
        field = value;
        return std::string();
    };
}

template <typename Choice> Reader IntoChoice(Choice &field, std::map<std::string, Choice> choices) {
    return [&field, choices = std::move(choices)](const std::string &text) {
        const auto found = choices.find(text);
        if (found != choices.end()) {
            field = found->second;
            return std::string();
        }
        std::vector<std::string> names;
        for (const auto &[name, choice] : choices) names.push_back(name);
        return "is none of " + Joined(names, ", ");
    };
}

Option UrlArgument(ServerSettings &server);

OptionGroup ServerOptions(ServerSettings &server);
OptionGroup ConnectingOptions(ServerSettings &server);            // how long for a reply
OptionGroup WaitingOptions(ServerSettings &server);               // and for packets
OptionGroup StayingOptions(ServerSettings &server, bool records); // a session that is to last
OptionGroup DurationOptions(std::chrono::milliseconds &duration, const std::string &otherwise);
OptionGroup FigureOptions(ReceptionSettings &reception);
OptionGroup RecordingOptions(OutputSettings &output, bool isRequired);
OptionGroup GeneralOptions(ConsoleSettings &console);

// Which file, in which format, and whether over one that exists.
std::vector<Option> FileOptions(OutputSettings &output, unsigned formats, bool isRequired);
Option LatencyOption(std::optional<std::chrono::milliseconds> &latency, const std::string &otherwise);
std::string RecordedLatency(); // what it is otherwise, where a server's streams are put in order

} // namespace tool
