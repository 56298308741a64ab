// A table of functions that the program has set, and its context: both live until the last that was made by it has
// been closed. Application thread.
#pragma once

#include <cstdint>
#include <new>

namespace rtsptap {

template <typename Table> struct SharedTable {
    Table table = {}; // has a function `release`, or null
    void *context = nullptr;
    uint32_t uses = 1;
};

// A copy of the table, used once. Null when memory is short.
template <typename Shared, typename Table> Shared *ShareTable(const Table &table, void *context) {
    return new (std::nothrow) Shared{{.table = table, .context = context}};
}

// One use less, and the end of it with the last. Null is none.
template <typename Shared> void DropTable(Shared *shared) {
    if (shared == nullptr || --shared->uses > 0) return;
    if (shared->table.release != nullptr) shared->table.release(shared->context);
    delete shared;
}

} // namespace rtsptap
