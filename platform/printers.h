// The three diagnostics printers, as the rest of the library calls them, and the object at the top of a function
// that logs entry and exit and turns a failure into one line.
// The error and info printers write to standard output; the debug printer prints nothing and, called
// from inside the library, costs nothing. No printer adds a line end: every message carries its own.
// Any thread may print; never while holding a packet queue's lock.
#pragma once

#include "rtsptap.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rtsptap {

// The debug printer for callers inside the library. Its arguments document what happens at that place.
[[gnu::format(printf, 2, 3)]] inline void DebugPrint(int /*level*/, const char * /*format*/, ...) {}

inline constexpr int kDebugEntry = 1;

// Handles are printed with %d: one place narrows them.
inline int32_t PrintableHandle(intptr_t handle) { return static_cast<int32_t>(handle); }
inline int32_t PrintableHandle(const void *record) { return PrintableHandle(reinterpret_cast<intptr_t>(record)); }

// A failure message, refused at compile time unless it has exactly one "%s" and ends its own line.
class FailureText {
public:
    template <std::size_t N> consteval FailureText(const char (&literal)[N]) : text_(literal) {
        const std::string_view text(literal, N - 1);
        const auto argument = text.find("%s");
        if (argument == text.npos || text.find('%', argument + 1) != text.npos || text.find('%') != argument ||
            !text.ends_with('\n'))
            throw "a failure text has exactly one %s and ends its line";
    }
    const char *Get() const { return text_; }

private:
    const char *text_;
};

class CallTrace {
public:
    explicit CallTrace(const char *function) : function_(function) {
        DebugPrint(kDebugEntry, "ENTER : %s\n", function_);
    }
    ~CallTrace() { DebugPrint(kDebugEntry, "EXIT : %s\n", function_); }
    CallTrace(const CallTrace &) = delete;
    CallTrace &operator=(const CallTrace &) = delete;

    const char *Function() const { return function_; }

    // Prints the message with this function's name and hands back the result: `return trace.Fail(...)`.
    template <typename Result> Result Fail(Result result, FailureText message) const {
        Print(message.Get());
        return result;
    }

private:
    // Out of the way of calls that succeed.
    [[gnu::cold, gnu::noinline]] void Print(const char *message) const {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        RtpRtspErrorPrint(message, function_); // FailureText vouches for the format
#pragma GCC diagnostic pop
    }

    const char *const function_;
};

} // namespace rtsptap
