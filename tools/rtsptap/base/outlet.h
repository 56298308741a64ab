// What is written while media is received, to a descriptor whose reader may be late: a terminal that is stopped, a
// program at the other end of a pipe. It waits here meanwhile, so that no packet has to.
#pragma once

#include <cstddef>
#include <string>

namespace tool {

class Outlet {
public:
    explicit Outlet(int descriptor) : descriptor_(descriptor) {}

    // Behind what waits, of which goes as much as can without waiting. Where more than a mebibyte waits already it
    // is lost.
    void Put(const std::string &text);
    void Pass() { Write(0); }
    void Flush() { Write(-1); } // all of it, however long that takes

    bool IsEmpty() const { return waiting_.empty(); }
    int Error() const { return error_; } // errno of a write that failed: nothing is written any more; 0: none did

private:
    void Write(int patienceMs);

    const int descriptor_;
    std::string waiting_;
    int error_ = 0;
};

} // namespace tool
