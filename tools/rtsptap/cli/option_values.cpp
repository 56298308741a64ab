#include "cli/option_values.h"

#include "base/outcome.h"
#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tool {
namespace {

using std::chrono::milliseconds;

constexpr auto kLongest = milliseconds(std::chrono::hours(100 * 365 * 24));
constexpr auto kLongestLatency = milliseconds(std::chrono::minutes(1)); // more than the queues hold

// A number that is not negative, and what follows it.
bool ParseNumber(const std::string &text, double &number, std::string &rest) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    rest.assign(end, text.data() + text.size());
    return error == std::errc() && std::isfinite(number) && !std::signbit(number);
}

Reader IntoTimeOf(milliseconds &field, milliseconds least, milliseconds most) {
    return [&field, least, most](const std::string &text) -> std::string {
        milliseconds time{0};
        if (!ParseTime(text, time)) return "is no time, as 200ms, 10s, 5m or 1h are";
        if (time < least) return "must be longer than nothing";
        if (time > most) return "is longer than " + TimeText(most);
        field = time;
        return "";
    };
}

} // namespace

bool ParseBitRate(const std::string &text, double &bitsPerSecond) {
    static const std::map<std::string, double> kUnits = {{"", 1}, {"k", 1e3}, {"K", 1e3}, {"M", 1e6}, {"G", 1e9}};
    std::string unit;
    if (!ParseNumber(text, bitsPerSecond, unit)) return false;
    const auto found = kUnits.find(unit);
    if (found == kUnits.end()) return false;
    bitsPerSecond *= found->second;
    return true;
}

bool ParseTime(const std::string &text, milliseconds &time) {
    static const std::map<std::string, double> kUnitsMs = {
        {"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60e3}, {"h", 3600e3}};
    double number = 0;
    std::string unit;
    if (!ParseNumber(text, number, unit)) return false;
    const auto found = kUnitsMs.find(unit);
    if (found == kUnitsMs.end() || number * found->second > static_cast<double>(kLongest.count())) return false;
    time = milliseconds(std::llround(number * found->second));
    return true;
}

Reader Into(bool &field) {
    return [&field](const std::string &) {
        field = true;
        return std::string();
    };
}

Reader Into(std::string &field) {
    return [&field](const std::string &text) -> std::string {
        field = text;
        return text.empty() ? "must not be empty" : "";
    };
}

Reader Into(std::vector<std::string> &field) {
    return [&field](const std::string &text) {
        field.push_back(text);
        return std::string();
    };
}

Reader IntoTime(milliseconds &field) { return IntoTimeOf(field, milliseconds(1), kLongest); }

Reader IntoLatency(std::optional<milliseconds> &field) {
    return [&field](const std::string &text) {
        milliseconds latency{0};
        const std::string wrong = IntoTimeOf(latency, milliseconds(0), kLongestLatency)(text);
        if (wrong.empty()) field = latency;
        return wrong;
    };
}

Reader IntoGap(std::optional<milliseconds> &field) {
    return [&field](const std::string &text) { return IntoTime(field.emplace())(text); };
}

Reader IntoPercent(std::optional<double> &field) {
    return [&field](const std::string &text) -> std::string {
        double number = 0;
        std::string unit;
        if (!ParseNumber(text, number, unit) || number > 100 || (!unit.empty() && unit != "%"))
            return "is no percentage from 0 to 100";
        field = number;
        return "";
    };
}

Reader IntoRate(std::optional<double> &field) {
    return [&field](const std::string &text) -> std::string {
        double rate = 0;
        if (!ParseBitRate(text, rate)) return "is no bit rate, as 64000, 500k or 2M are";
        field = rate;
        return "";
    };
}

Reader IntoCount(std::optional<int> &field) {
    return [&field](const std::string &text) -> std::string {
        int number = 0;
        const char *end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (!text.empty() && (error != std::errc() || stop != end || number < 0)) return "is no count";
        field = number;
        return "";
    };
}

Reader IntoList(std::vector<std::string> &field) {
    return [&field](const std::string &text) {
        const std::vector<std::string> entries = Split(text, ',');
        field.insert(field.end(), entries.begin(), entries.end());
        const bool hasGap = std::find(entries.begin(), entries.end(), "") != entries.end();
        return std::string(hasGap ? "has an empty entry" : "");
    };
}

} // namespace tool
