#include "cli/suggestion.h"

#include <algorithm>

namespace tool {
namespace {

// Letters to insert, remove, replace or swap with their neighbour to make one word of the other.
std::size_t Distance(const std::string &left, const std::string &right) {
    std::vector<std::vector<std::size_t>> steps(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i)
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = steps[i - 1][j - 1] + (left[i - 1] != right[j - 1] ? 1 : 0);
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
            const bool isSwap = i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
            if (isSwap) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    return steps[left.size()][right.size()];
}

} // namespace

std::string Suggestion(const std::string &word, const std::vector<std::string> &known) {
    const std::string *nearest = nullptr;
    std::size_t least = 1 + word.size() / 4; // further away it is another word
    for (const std::string &candidate : known) {
        const bool isBeginning = word.size() > 3 && candidate.compare(0, word.size(), word) == 0;
        const std::size_t distance = isBeginning ? 0 : Distance(word, candidate);
        if (distance > least || (nearest != nullptr && distance == least)) continue;
        least = distance;
        nearest = &candidate;
    }
    return nearest == nullptr ? "" : "; did you mean " + *nearest + "?";
}

} // namespace tool
