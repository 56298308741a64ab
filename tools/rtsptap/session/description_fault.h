// Why the library does not take a description, or stops reading it, in the words of its lines.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// "b=RR:0: bandwidth must be at least 1", of the first line that it objects to; empty when there is none.
std::string FaultOfDescription(std::string_view description);

} // namespace tool
