// The diagnostics printers, as the rest of the library calls them, and the object at the top of a function that
// logs entry and exit and turns a failure into one line.
// The error, info and event printers write to standard output, or hand the message to the printer that the program
// has set; the debug printer prints nothing and, called from inside the library, costs nothing. No printer adds a
// line end: every message carries its own.
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

// Whose messages this thread's are; 0: nobody's in particular. Written with each wait for packets, so it has its
// place in the thread's own block from the start.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local intptr_t gblPrintsFor;

// Until the end of a block this thread's messages are that client's.
class PrintsFor {
public:
    explicit PrintsFor(intptr_t clientHandle) : before_(gblPrintsFor) { gblPrintsFor = clientHandle; }
    ~PrintsFor() { gblPrintsFor = before_; }
    PrintsFor(const PrintsFor &) = delete;
    PrintsFor &operator=(const PrintsFor &) = delete;

private:
    const intptr_t before_;
};

// The same, out of line, until it is set again: where a call may go on in another thread than it began in, a place
// in the thread that the compiler remembers would be the wrong one. Returns what it was.
intptr_t SetPrintsFor(intptr_t clientHandle);

// What happens to packets and connections: printed without a prefix.
[[gnu::format(printf, 1, 2)]] void PrintEvent(const char *format, ...);
// What a system call failed with, as perror(3) says it, on standard error. `text` may be null.
void PrintSystemError(int error, const char *text);

// The client is gone, and with it the printer that was set for it.
void ForgetPrinter(intptr_t clientHandle);

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

// Of a call for a client: whatever is printed during it is that client's.
class ClientTrace : public CallTrace {
public:
    ClientTrace(const char *function, intptr_t clientHandle)
        : CallTrace(function), before_(SetPrintsFor(clientHandle)) {}
    ~ClientTrace() { SetPrintsFor(before_); }
    ClientTrace(const ClientTrace &) = delete;
    ClientTrace &operator=(const ClientTrace &) = delete;

private:
    const intptr_t before_;
};

} // namespace rtsptap
