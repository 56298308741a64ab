// What a mistyped word may have been meant to be.
#pragma once

#include <string>
#include <vector>

namespace tool {

// "; did you mean --transport?", or nothing when no known word is near.
std::string Suggestion(const std::string &word, const std::vector<std::string> &known);

} // namespace tool
