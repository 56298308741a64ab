#include "session/sessions.h"

#include "base/background.h"
#include "base/clock.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

namespace tool {
namespace {

constexpr std::size_t kMostAtOnce = 256; // packets

void GiveBack(std::span<const RTSPTapGroupPacket> records) {
    RTSPTapGroupFreePackets(records.data(), static_cast<int32_t>(records.size()));
}

// Those that were taken go back, whatever happens.
struct Taken {
    explicit Taken(std::span<const RTSPTapGroupPacket> of) : records(of) {}
    ~Taken() { GiveBack(records); }
    Taken(const Taken &) = delete;
    Taken &operator=(const Taken &) = delete;
    const std::span<const RTSPTapGroupPacket> records;
};

} // namespace

void Sessions::Wait(std::chrono::milliseconds limit, const Taker &take) {
    if (take && !early_.empty()) {
        const std::vector<RTSPTapGroupPacket> early = std::move(early_);
        early_.clear();
        Hand(early, take);
    }
    std::array<RTSPTapGroupPacket, kMostAtOnce> room;
    const auto ms = static_cast<int32_t>(std::max<int64_t>(limit.count(), 0));
    const int32_t count = RTSPTapGroupTakePackets(interruption_.Group(), room.data(), kMostAtOnce, ms);
    if (count < 0) std::this_thread::sleep_for(std::chrono::milliseconds(1)); // no memory
    if (count > 0) Hand({room.data(), static_cast<std::size_t>(count)}, take);
    std::erase_if(leaving_, [](const std::shared_ptr<Session> &session) { return session->HasLeft(); });
}

void Sessions::Hand(std::span<const RTSPTapGroupPacket> records, const Taker &take) {
    if (take) {
        const Taken taken(records);
        return take(records);
    }
    for (const RTSPTapGroupPacket &record : records) {
        if (IsLeaving(record))
            GiveBack({&record, 1});
        else
            early_.push_back(record);
    }
}

bool Sessions::IsLeaving(const RTSPTapGroupPacket &record) const {
    return std::any_of(leaving_.begin(), leaving_.end(),
                       [&record](const std::shared_ptr<Session> &session) { return session->IsOf(record); });
}

void Sessions::DropEarly() {
    GiveBack(early_);
    early_.clear();
}

int Sessions::TakeFor(std::chrono::milliseconds duration, const Taker &take) {
    const Clock::time_point end = Clock::now() + duration;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (Signal() != 0 || left.count() <= 0) return Signal();
        Wait(left, take);
    }
}

void Sessions::TakeLeaveOf(std::shared_ptr<Session> session) {
    DropEarly();
    session->BeginToLeave();
    leaving_.push_back(std::move(session));
}

bool Sessions::RunBeside(std::function<void()> work, const std::function<bool()> &goOn) {
    const auto done = std::make_shared<std::atomic<bool>>(false);
    RunInBackground([work = std::move(work), done, group = interruption_.Group()] {
        work();
        *done = true;
        RTSPTapGroupInterrupt(group);
    });
    while (!*done)
        if (!goOn()) return false;
    return true;
}

} // namespace tool
