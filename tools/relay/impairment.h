// What a bad network does to a stream of packets. The same packets at the same times meet the same fate whenever
// the settings are the same: it reads no clock, opens no socket, and its random numbers come from the seed alone.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace relay {

struct ImpairmentSettings {
    double lossPercent = 0;
    int lossRun = 1; // packets lost in a row
    double duplicatePercent = 0;
    double reorderPercent = 0; // packets held back ...
    int reorderDepth = 0;      // ... until so many later ones have come
    int jitterMs = 0;          // every packet is late by 0 to this
    int burst = 1;             // packets that leave together; an unfinished burst leaves after kBurstWaitUs
    uint64_t seed = 1;
    int delayMs = 0;     // every packet is late by this, too ...
    double driftPpm = 0; // ... and by so many millionths of the time since the first one
};

inline constexpr int64_t kBurstWaitUs = 100000;

class Impairment {
public:
    explicit Impairment(const ImpairmentSettings &with) : settings(with), random(with.seed) {}

    // Microseconds of any clock that does not run backwards.
    void Arrive(int64_t nowUs, const std::string &packet);
    // The packets that leave by now, in order; with INT64_MAX all that are left.
    std::vector<std::string> Depart(int64_t nowUs);

    uint64_t arrived = 0, lost = 0, duplicated = 0, heldBack = 0; // so far

private:
    bool Chance(double percent);
    bool IsLost();
    void Enter(int64_t nowUs, const std::string &packet);
    void Delay(int64_t nowUs, const std::string &packet);

    const ImpairmentSettings settings;
    std::mt19937_64 random;
    int64_t firstUs = -1;
    int lostNext = 0;                            // of a run that has begun
    std::multimap<uint64_t, std::string> held;   // by the number of the arrival behind which they go on
    std::multimap<int64_t, std::string> waiting; // by the time from which they may leave
};

} // namespace relay
