// Work that may take longer than anyone waits: calls of the library block for as long as 25 seconds, those of the
// system for minutes, and nothing interrupts them. Each has a thread of its own that is waited for or left behind.
#pragma once

#include <chrono>
#include <functional>

namespace tool {

// The work owns what it uses: whoever started it may be gone when it ends.
void RunInBackground(std::function<void()> work);

// Until nothing runs any more, at most so long; false when something still does.
bool WaitForBackground(std::chrono::milliseconds limit);

// Ends the process with what it wrote written, also while something runs: main's last call.
[[noreturn]] void EndProcess(int status);

} // namespace tool
