// Tables that leave columns out where the terminal is too narrow for all of them.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace tool {

// Those that there is room for, each with a space before it. A column has a width and a rank: the highest ranks are
// left out first.
template <typename Column>
std::vector<const Column *> ColumnsIn(std::size_t room, std::span<const Column> columns) {
    std::vector<const Column *> fitting;
    for (const Column &column : columns) {
        std::size_t needed = 0; // by those that matter as much
        for (const Column &other : columns)
            if (other.rank <= column.rank) needed += 1 + other.width;
        if (needed <= room) fitting.push_back(&column);
    }
    return fitting;
}

} // namespace tool
