#include "rtp/held_packets.h"

#include "rtp/packet_memory.h"

#include <cstdlib>
#include <utility>

namespace rtsptap {

namespace {

constexpr std::size_t kFirstSlots = 128;

} // namespace

HeldPackets::~HeldPackets() { std::free(table_); }

// ---- which ----

std::size_t HeldPackets::Home(const RTPStreamData *packet) const {
    const uint64_t product = reinterpret_cast<uintptr_t>(packet) * uint64_t{0x9E3779B97F4A7C15};
    return static_cast<std::size_t>(product >> 32) & (slots_ - 1);
}

// The packet's slot; slots_ when it has none.
std::size_t HeldPackets::Find(const RTPStreamData *packet) const {
    if (packet == nullptr || count_ == 0) return slots_;
    std::size_t slot = Home(packet);
    while (table_[slot] != nullptr && table_[slot] != packet) slot = Behind(slot);
    return table_[slot] == packet ? slot : slots_;
}

void HeldPackets::Put(RTPStreamData *packet) {
    std::size_t slot = Home(packet);
    while (table_[slot] != nullptr) slot = Behind(slot);
    table_[slot] = packet;
}

// What lies behind the slot moves up where the search for it would end there.
void HeldPackets::Clear(std::size_t slot) {
    table_[slot] = nullptr;
    for (std::size_t at = Behind(slot); table_[at] != nullptr; at = Behind(at)) {
        const std::size_t home = Home(table_[at]);
        if (((at - home) & (slots_ - 1)) < ((at - slot) & (slots_ - 1))) continue;
        table_[slot] = std::exchange(table_[at], nullptr);
        slot = at;
    }
}

bool HeldPackets::Grow() {
    const std::size_t slots = slots_ == 0 ? kFirstSlots : 2 * slots_;
    auto **const table = static_cast<RTPStreamData **>(std::calloc(slots, sizeof *table_));
    if (table == nullptr) return false;
    std::free(std::exchange(table_, table));
    slots_ = slots;
    for (RTPStreamData *at = oldest_; at != nullptr; at = at->next) Put(at);
    return true;
}

// ---- in what order ----

void HeldPackets::Add(RTPStreamData &packet) {
    ++count_;
    Put(&packet);
    packet.next = nullptr;
    packet.prev = newest_;
    (newest_ != nullptr ? newest_->next : oldest_) = &packet;
    newest_ = &packet;
    ClaimOf(packet).ring = nullptr; // whoever else gives it back has to look here
}

bool HeldPackets::Remove(RTPStreamData *packet, const uint8_t *&freeUpTo) {
    const std::size_t slot = Find(packet);
    if (slot == slots_) return false;
    Clear(slot);
    --count_;
    const uint8_t *const end = ClaimOf(*packet).end;
    (packet->prev != nullptr ? ClaimOf(*packet->prev).end : freeUpTo) = end;
    (packet->prev != nullptr ? packet->prev->next : oldest_) = packet->next;
    (packet->next != nullptr ? packet->next->prev : newest_) = packet->prev;
    return true;
}

} // namespace rtsptap
