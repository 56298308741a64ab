#include "cli/option_values.h"

#include "base/codec_names.h"
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

// 1h30m, 1m30s, 200ms; a number without a unit stands alone and is seconds
bool ParseUnits(std::string text, double &totalMs) {
    static const std::map<std::string, double> kUnitsMs = {
        {"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60e3}, {"h", 3600e3}};
    double last = HUGE_VAL;
    do {
        double number = 0;
        std::string rest;
        if (!ParseNumber(text, number, rest)) return false;
        const std::size_t end = std::min(rest.find_first_of("0123456789"), rest.size());
        const auto unit = kUnitsMs.find(rest.substr(0, end));
        if (unit == kUnitsMs.end() || unit->second >= last || (unit->first.empty() && last != HUGE_VAL))
            return false;
        last = unit->second;
        totalMs += number * last;
        text = rest.substr(end);
    } while (!text.empty());
    return true;
}

// 01:30 minutes and seconds, 00:01:30 with hours
bool ParseClock(const std::string &text, double &totalMs) {
    const std::vector<std::string> parts = Split(text, ':');
    if (parts.size() > 3) return false;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        double number = 0;
        std::string rest;
        const bool isWhole = parts[i].find_first_not_of("0123456789") == std::string::npos;
        if (!ParseNumber(parts[i], number, rest) || !rest.empty()) return false;
        if ((i > 0 && number >= 60) || (i + 1 < parts.size() && !isWhole)) return false;
        totalMs = totalMs * 60 + number * 1000;
    }
    return true;
}

Reader IntoTimeOf(milliseconds &field, milliseconds least, milliseconds most) {
    return [&field, least, most](const std::string &text) -> std::string {
        milliseconds time{0};
        if (!ParseTime(text, time)) return "is no time, as 200ms, 10s, 1m30s or 00:01:30 are";
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
    double total = 0;
    const bool isClock = text.find(':') != text.npos;
    if (!(isClock ? ParseClock(text, total) : ParseUnits(text, total))) return false;
    if (total > static_cast<double>(kLongest.count())) return false;
    time = milliseconds(std::llround(total));
    return true;
}

Reader Into(bool &field) {
    return [&field](const std::string &) {
        field = true;
        return std::string();
    };
}

Reader Into(std::optional<bool> &field, bool value) {
    return [&field, value](const std::string &) {
        field = value;
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

Reader IntoHops(int &field) {
    return [&field](const std::string &text) {
        std::optional<int> number = field;
        const std::string wrong = text.empty() ? "" : IntoCount(number)(text);
        field = *number;
        return wrong;
    };
}

Reader IntoCodecs(std::vector<std::string> &field) {
    return [&field](const std::string &text) -> std::string {
        for (const std::string &name : Split(text, ',')) {
            if (CodecTypeOfName(name) == 0 && CodecTypeOfEncoding(name) == 0)
                return "is none of " + Joined(CodecNames(true), ", ") + ", " + Joined(CodecNames(false), ", ");
            field.push_back(name);
        }
        return "";
    };
}

Reader IntoUser(std::string &field) {
    return [&field](const std::string &text) -> std::string {
        if (text.find(':') != std::string::npos)
            return "takes the name alone; the password comes from RTSPTAP_PASSWORD, --password-file or the "
                   "terminal";
        field = text;
        return text.empty() ? "must not be empty" : "";
    };
}

} // namespace tool
