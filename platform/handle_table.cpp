#include "platform/handle_table.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>

namespace rtsptap {

namespace {

using Slot = std::atomic<intptr_t>; // a handle or one of these
constexpr intptr_t kEmpty = 0;      // nothing that is searched for lies behind it
constexpr intptr_t kRemoved = 1;    // searches go on

constexpr std::size_t kFirstSlots = 64;

struct Table {
    Slot *slots = nullptr;
    std::size_t count = 0;     // of slots, a power of two
    Table *outgrown = nullptr; // the one before, kept for searches in it
};

constinit Slot firstSlots[kFirstSlots] = {};
constinit Table firstTable{firstSlots, kFirstSlots, nullptr};
constinit std::atomic<Table *> currentTable{&firstTable};
constinit std::size_t liveHandles = 0; // of whoever adds and removes

std::size_t Behind(const Table &table, std::size_t at) { return (at + 1) & (table.count - 1); }
std::size_t Before(const Table &table, std::size_t at) { return (at - 1) & (table.count - 1); }

// Where the search begins. The product's upper half depends on every bit of the address.
std::size_t Home(const Table &table, intptr_t handle) {
    const uint64_t product = static_cast<uint64_t>(handle) * 0x9E3779B97F4A7C15;
    return static_cast<std::size_t>(product >> 32) & (table.count - 1);
}

// The handle's slot, or null.
Slot *Find(const Table &table, intptr_t handle) {
    if (handle == kEmpty || handle == kRemoved) return nullptr;
    std::size_t at = Home(table, handle);
    for (std::size_t left = table.count; left > 0; --left, at = Behind(table, at)) {
        const intptr_t found = table.slots[at].load(std::memory_order_acquire);
        if (found == handle) return &table.slots[at];
        if (found == kEmpty) return nullptr;
    }
    return nullptr;
}

// The table has a free slot.
void Put(const Table &table, intptr_t handle) {
    std::size_t at = Home(table, handle);
    const auto isFree = [&] {
        const intptr_t found = table.slots[at].load(std::memory_order_relaxed);
        return found == kEmpty || found == kRemoved;
    };
    while (!isFree()) at = Behind(table, at);
    table.slots[at].store(handle, std::memory_order_release);
}

bool Grow(Table &from) {
    std::unique_ptr<Table> table(new (std::nothrow) Table{nullptr, 2 * from.count, &from});
    if (table == nullptr) return false;
    table->slots = new (std::nothrow) Slot[table->count]{};
    if (table->slots == nullptr) return false;
    for (std::size_t at = 0; at < from.count; ++at) {
        const intptr_t handle = from.slots[at].load(std::memory_order_relaxed);
        if (handle != kEmpty && handle != kRemoved) Put(*table, handle);
    }
    currentTable.store(table.release(), std::memory_order_release);
    return true;
}

void ClearMarksBefore(const Table &table, std::size_t at) {
    if (table.slots[Behind(table, at)].load(std::memory_order_relaxed) != kEmpty) return;
    for (; table.slots[at].load(std::memory_order_relaxed) == kRemoved; at = Before(table, at))
        table.slots[at].store(kEmpty, std::memory_order_release);
}

} // namespace

bool IsLiveHandle(intptr_t handle) {
    const Table &table = *currentTable.load(std::memory_order_acquire);
    if (handle == kEmpty || handle == kRemoved) return false;
    // Nearly always where the search would begin.
    if (table.slots[Home(table, handle)].load(std::memory_order_acquire) == handle) return true;
    return Find(table, handle) != nullptr;
}

bool AddHandle(intptr_t handle) {
    Table &table = *currentTable.load(std::memory_order_relaxed);
    if (2 * liveHandles >= table.count && !Grow(table)) return false;
    Put(*currentTable.load(std::memory_order_relaxed), handle);
    ++liveHandles;
    return true;
}

bool RemoveHandle(intptr_t handle) {
    const Table &table = *currentTable.load(std::memory_order_relaxed);
    Slot *const slot = Find(table, handle);
    if (slot == nullptr) return false;
    slot->store(kRemoved, std::memory_order_release);
    ClearMarksBefore(table, static_cast<std::size_t>(slot - table.slots));
    --liveHandles;
    return true;
}

} // namespace rtsptap
