// Work that may take longer than anyone waits: asking name servers, which nothing interrupts. Each has a thread of
// its own that is waited for or left behind.
#pragma once

#include <functional>

namespace tool {

// The work owns what it uses: whoever started it may be gone when it ends.
void RunInBackground(std::function<void()> work);

// Ends the process with what it wrote written, also while something runs: main's last call.
[[noreturn]] void EndProcess(int status);

} // namespace tool
