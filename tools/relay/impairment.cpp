#include "impairment.h"

#include <algorithm>

namespace relay {

// Not a standard distribution: those differ from library to library.
bool Impairment::Chance(double percent) { return static_cast<double>(random() >> 11) * 0x1p-53 * 100 < percent; }

// Runs begin as often as makes the share of lost packets the one asked for.
bool Impairment::IsLost() {
    if (lostNext > 0) return lostNext-- > 0;
    const double share = settings.lossPercent / 100;
    const bool isLost = Chance(100 * share / (settings.lossRun - share * (settings.lossRun - 1)));
    if (isLost) lostNext = settings.lossRun - 1;
    return isLost;
}

void Impairment::Arrive(int64_t nowUs, const std::string &packet) {
    ++arrived;
    const int copies = IsLost() ? 0 : Chance(settings.duplicatePercent) ? 2 : 1;
    lost += copies == 0;
    duplicated += copies == 2;
    for (int i = 0; i < copies; ++i) Enter(nowUs, packet);
    const auto end = held.upper_bound(arrived);
    for (auto at = held.begin(); at != end; at = held.erase(at)) Delay(nowUs, at->second);
}

void Impairment::Enter(int64_t nowUs, const std::string &packet) {
    if (settings.reorderDepth == 0 || !Chance(settings.reorderPercent)) return Delay(nowUs, packet);
    ++heldBack;
    held.emplace(arrived + static_cast<uint64_t>(settings.reorderDepth), packet);
}

void Impairment::Delay(int64_t nowUs, const std::string &packet) {
    const uint64_t steps = static_cast<uint64_t>(settings.jitterMs) * 1000 + 1;
    if (firstUs < 0) firstUs = nowUs;
    const auto drift = static_cast<int64_t>(static_cast<double>(nowUs - firstUs) * settings.driftPpm * 1e-6);
    const int64_t delay = static_cast<int64_t>(settings.delayMs) * 1000 + drift;
    waiting.emplace(nowUs + delay + static_cast<int64_t>(random() % steps), packet);
}

std::vector<std::string> Impairment::Depart(int64_t nowUs) {
    std::vector<std::string> leaving;
    const auto leave = [&](auto &from, auto count) {
        for (; count > 0; --count, from.erase(from.begin())) leaving.push_back(from.begin()->second);
    };
    const auto ready = std::distance(waiting.begin(), waiting.upper_bound(nowUs));
    const bool overdue = ready > 0 && nowUs - kBurstWaitUs >= waiting.begin()->first;
    leave(waiting, overdue ? ready : ready - ready % settings.burst);
    if (nowUs == INT64_MAX) leave(held, held.size());
    return leaving;
}

} // namespace relay
