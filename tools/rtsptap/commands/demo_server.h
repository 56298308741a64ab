// The bundled server as a process of its own, for as long as this object lives.
#pragma once

#include "base/interruption.h"
#include "base/outcome.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace tool {

class DemoServer {
public:
    DemoServer() = default;
    ~DemoServer(); // ends the process
    DemoServer(const DemoServer &) = delete;
    DemoServer &operator=(const DemoServer &) = delete;

    // From the program's own directory, or PATH; waits until it has told its address.
    Outcome Start(const std::vector<std::string> &arguments, Interruption &interruption);
    const std::string &Url() const { return url_; }

private:
    Outcome ReadUrl(Interruption &interruption);

    pid_t pid_ = -1;
    int output_ = -1; // its standard output
    std::string url_;
};

} // namespace tool
