#include "cli/options.h"

#include "base/codecs.h"
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

bool ParseTime(const std::string &text, milliseconds &time) {
    double total = 0;
    const bool isClock = text.find(':') != text.npos;
    if (!(isClock ? ParseClock(text, total) : ParseUnits(text, total))) return false;
    if (total > static_cast<double>(kLongest.count())) return false;
    time = milliseconds(std::llround(total));
    return true;
}

template <typename Field> Reader IntoTimeBetween(milliseconds least, milliseconds most, Field &field) {
    return [&field, least, most](const std::string &text) -> std::string {
        milliseconds time{0};
        if (!ParseTime(text, time)) return "is no time, as 200ms, 10s, 1m30s or 00:01:30 are";
        if (time < least) return "must be longer than nothing";
        if (time > most) return "is longer than " + TimeText(most);
        field = time;
        return "";
    };
}

Reader Into(std::vector<std::string> &field) {
    return [&field](const std::string &text) {
        field.push_back(text);
        return std::string();
    };
}

Reader IntoNumber(std::optional<double> &field, const std::map<std::string, double> &units, double most,
                  const std::string &wrong) {
    return [&field, units, most, wrong](const std::string &text) -> std::string {
        double number = 0;
        std::string rest;
        if (!ParseNumber(text, number, rest)) return wrong;
        const auto unit = units.find(rest);
        if (unit == units.end() || number * unit->second > most) return wrong;
        field = number * unit->second;
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

// "6000-6199": where pairs of an even port and the next one fit.
Reader IntoPorts(UdpSettings &udp) {
    return [&udp](const std::string &text) -> std::string {
        const std::size_t dash = std::min(text.find('-'), text.size());
        std::optional<int> first;
        std::optional<int> last;
        const bool areNumbers = dash > 0 && dash + 1 < text.size() &&
                                IntoCount(first)(text.substr(0, dash)).empty() &&
                                IntoCount(last)(text.substr(dash + 1)).empty();
        if (!areNumbers || *first < 1024 || *last > 65535 || *first + *first % 2 >= *last)
            return "is no range of ports from 1024 to 65535, as 6000-6199 is";
        udp.firstPort = *first;
        udp.lastPort = *last;
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
                return "is none of " + Joined(CodecNames(), ", ");
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

} // namespace

Reader Into(std::string &field) {
    return [&field](const std::string &text) -> std::string {
        field = text;
        return text.empty() ? "must not be empty" : "";
    };
}

Reader IntoTime(milliseconds &field) { return IntoTimeBetween(milliseconds(1), kLongest, field); }

Option UrlArgument(ServerSettings &server) { return {"url", "URL", "", Into(server.url), true}; }

OptionGroup ServerOptions(ServerSettings &server) {
    return {"Server",
            {{"-t,--transport", "auto|udp|tcp|multicast",
              "carry the media over this; auto, the default, is UDP, then TCP if that brings nothing, or TCP with "
              "rtsps",
              IntoChoice<Transport>(server.transport, {{"auto", Transport::kAuto},
                                                       {"udp", Transport::kUdp},
                                                       {"tcp", Transport::kTcp},
                                                       {"multicast", Transport::kMulticast}})},
             {"-u,--user",
              "NAME",
              "log in as NAME; a password that comes from nowhere else is asked for on the terminal",
              IntoUser(server.user),
              false,
              {},
              true},
             {"--password-file", "FILE", "take the password from the first line of FILE; - is standard input",
              Into(server.passwordFile)},
             {"--ca-file", "FILE", "rtsps: trust the certificates in FILE, and no others", Into(server.tls.roots)},
             {"--client-cert", "FILE", "rtsps: show the certificate in FILE, which has its key, too",
              Into(server.tls.certificate)},
             {"--insecure", "", "rtsps: believe whoever answers", Switch(server.tls.insecure)},
             {"--ports", "FIRST-LAST", "receive on local UDP ports from FIRST to LAST, two for each stream",
              IntoPorts(server.udp)},
             {"--only-server", "", "over UDP, take packets only from the server, and from whom its reply names",
              Switch(server.udp.onlyServer)},
             {"--follow", "[=N]", "go where the server sends us, so often in a row (default: 5; 0: not at all)",
              IntoHops(server.follow)},
             {"--exact", "", "forgive nothing: refuse what the standards do not allow, though devices send it",
              Switch(server.exact)},
             {"-H,--header", "HEADER", "add 'METHOD: Name: value' to the requests of a method; may be repeated",
              Into(server.headers)}}};
}

OptionGroup ConnectingOptions(ServerSettings &server) {
    return {"Waiting",
            {{"--connect-timeout", "TIME", "give up when a step before the media takes longer (default: 10s)",
              IntoTime(server.connectTimeout)}}};
}

OptionGroup WaitingOptions(ServerSettings &server) {
    OptionGroup group = ConnectingOptions(server);
    group.options.push_back({"--idle-timeout", "TIME",
                             "give up when no stream has brought a packet for so long (default: 10s)",
                             IntoTime(server.idleTimeout)});
    return group;
}

OptionGroup StayingOptions(ServerSettings &server, bool records) {
    return {
        "Staying",
        {{"--reconnect", "[=N]", "connect again when the session breaks; give up after N failures in a row",
          IntoCount(server.reconnect)},
         {"--keepalive", "",
          "ask for something at half the session time-out, or of 60s where the server names none: so by default",
          Switch(server.keepalive)},
         {"--no-keepalive", "", "ask for nothing: many servers then end the session",
          Switch(server.keepalive, false)},
         LatencyOption(server.latency, records ? RecordedLatency() : "0")}};
}

OptionGroup DurationOptions(milliseconds &duration, const std::string &otherwise) {
    return {"Duration",
            {{"--duration", "TIME", "stop after so long (default: " + otherwise + ")", IntoTime(duration)}}};
}

OptionGroup FigureOptions(ReceptionSettings &reception) {
    return {
        "Figures and limits",
        {{"--stats-json", "FILE", "write a JSON object every second and a summary at the end; - is standard output",
          Into(reception.statsJson)},
         {"--max-loss", "PERCENT", "end with status 14 if a stream lost more of its packets",
          IntoNumber(reception.health.maxLossPercent, {{"", 1}, {"%", 1}}, 100, "is no percentage from 0 to 100")},
         {"--max-gap", "TIME", "end with status 14 if a stream brought nothing for longer, reconnecting included",
          IntoTimeBetween(milliseconds(1), kLongest, reception.health.maxGap)},
         {"--min-rate", "RATE",
          "end with status 14 if all streams together brought fewer bits per second, as 500k or 2M",
          IntoNumber(reception.health.minBitsPerSecond, {{"", 1}, {"k", 1e3}, {"K", 1e3}, {"M", 1e6}, {"G", 1e9}},
                     HUGE_VAL, "is no bit rate, as 64000, 500k or 2M are")},
         {"--expect-codec", "CODEC", "end with status 14 if no stream of this codec came; may be repeated",
          IntoCodecs(reception.health.expectedCodecs), false, CodecNames()}}};
}

std::vector<Option> FileOptions(OutputSettings &output, unsigned formats, bool isRequired) {
    std::string names = FormatNames(formats);
    for (std::size_t at = 0; (at = names.find(", ", at)) != std::string::npos;) names.replace(at, 2, "|");
    return {{"-o,--output", "FILE",
             "write there, in the format of the extension; %Y, %H and so on as in strftime; - is standard output",
             Into(output.file), isRequired},
            {"--format", names, "the format, whatever the extension says", Into(output.format)},
            {"--force", "", "overwrite a file that exists; otherwise it is asked for, or refused",
             Switch(output.force)},
            {"--no-clobber", "", "never overwrite a file, and do not ask", Switch(output.noClobber)}};
}

OptionGroup RecordingOptions(OutputSettings &output, bool isRequired) {
    OptionGroup group = {"Recording", FileOptions(output, kRecordings, isRequired)};
    group.options.insert(
        group.options.begin() + 2,
        {"--split", "TIME",
         "begin a new file, NAME-001 and so on behind those that exist, at the key frame after so long",
         IntoTime(output.split)});
    return group;
}

Option LatencyOption(std::optional<milliseconds> &latency, const std::string &otherwise) {
    return {"--latency", "TIME", "wait so long for late packets, to put them in order (default: " + otherwise + ")",
            IntoTimeBetween(milliseconds(0), kLongestLatency, latency)};
}

std::string RecordedLatency() { return TimeText(kUsualLatency) + " over UDP, 0 over TCP"; }

OptionGroup GeneralOptions(ConsoleSettings &console) {
    const Reader nothing = [](const std::string &) { return std::string(); }; // it counts that they are there
    return {
        "General",
        {{"-q,--quiet", "", "say nothing but errors, and show no table", Switch(console.quiet)},
         {"-v,--verbose", "", "show the dialogue with the server, and what the library prints, on standard error",
          Switch(console.verbose)},
         {"--no-color", "", "use no colors; the variable NO_COLOR does the same", Switch(console.color, false)},
         {"-h,--help", "", "show this help, or that of a command", nothing},
         {"--version", "", "show the version and what the program was built with", nothing}}};
}

} // namespace tool
