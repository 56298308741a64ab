// From the text of an option to the field it sets.
#pragma once

#include "base/text.h"
#include "cli/manual.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// "200ms", "10s", "1.5m", "1m30s", "1h", "00:01:30", a plain number in seconds; not negative, at most 100 years.
bool ParseTime(const std::string &text, std::chrono::milliseconds &time);

// "64000", "500k", "2M", "1.5G"
bool ParseBitRate(const std::string &text, double &bitsPerSecond);

// Each sets the field it is given, which must outlive the reader.
Reader Into(bool &field);                                            // a switch: becomes true
Reader Into(std::optional<bool> &field, bool value);                 // a switch: becomes that
Reader Into(std::string &field);                                     // not empty
Reader Into(std::vector<std::string> &field);                        // one more
Reader IntoTime(std::chrono::milliseconds &field);                   // above 0
Reader IntoLatency(std::optional<std::chrono::milliseconds> &field); // 0 to a minute
Reader IntoGap(std::optional<std::chrono::milliseconds> &field);
Reader IntoPercent(std::optional<double> &field);   // 0 to 100, with or without "%"
Reader IntoRate(std::optional<double> &field);      // bits per second
Reader IntoCount(std::optional<int> &field);        // 0 also when the value is left out
Reader IntoHops(int &field);                        // stays when the value is left out
Reader IntoCodecs(std::vector<std::string> &field); // separated by commas
Reader IntoUser(std::string &field);                // without a password behind it

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

} // namespace tool
