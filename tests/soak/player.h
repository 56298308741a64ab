// A client of the answering server, as a careful application drives it, and what a process holds while many of them
// come and go. A Player is used by one thread at a time, its Take by one more per stream.
#pragma once

#include "tests/support/client.h"
#include "tests/support/live_threads.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <string>

namespace soak {

using namespace rtsptap::test;

inline constexpr uint32_t kFirstSequenceNumber = 64000; // as the server has it
inline uint16_t serverPort = 0;
inline std::atomic<int> failures{0};

// Counts and tells what is not as it should be.
inline bool Expect(bool good, const std::string &what, long value = 0) {
    if (!good && ++failures <= 20) fprintf(stderr, "FAILED: %s: %ld\n", what.c_str(), value);
    return good;
}

template <typename Action> double MillisecondsOf(const Action &action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

class Player : public Client {
public:
    Player(uint32_t dataProto, const std::string &pathOfUrl, int32_t ringBytes = 1 << 18)
        : Client(ringBytes, dataProto, pathOfUrl) {
        Expect(*this > 0, "RTSPClientCreate", *this);
        serverPort = soak::serverPort;
    }

    // The numbers behind that word of the last reply: 0 where there are none.
    std::array<long, 2> Told(const std::string &word) const {
        std::array<long, 2> numbers = {};
        std::string reply(4096, '\0');
        auto size = static_cast<int32_t>(reply.size());
        RTSPClientGetLastReply(*this, reply.data(), &size);
        const std::size_t at = reply.find(word);
        if (at != reply.npos) sscanf(reply.c_str() + at + word.size(), "%ld%*c%ld", &numbers[0], &numbers[1]);
        return numbers;
    }

    // Takes one packet of stream 0 or 1, which must be the next one; false when there was none.
    bool Take(std::size_t stream) {
        constexpr int32_t kCodecs[] = {RTP_CODEC_H264, RTP_CODEC_MPEG4_GENERIC};
        RTPStreamData *packet = nullptr;
        if (RTPClientGetRTPStreamData(*this, &packet, kCodecs[stream]) != 0 || packet == nullptr) return false;
        const auto number = static_cast<uint32_t>(taken[stream]++);
        const uint8_t *const end = packet->payload + packet->payloadLength;
        const uint32_t first = BigEndian(packet->payload);
        Expect(first == number && BigEndian(end - 4) == number &&
                   packet->rtpHeader->sequenceNumber == static_cast<uint16_t>(kFirstSequenceNumber + number),
               "instead of packet " + std::to_string(number) + " comes", first);
        return RTPClientFreeRTPStreamData(*this, packet, kCodecs[stream]) == 0;
    }
    void TakeUpTo(std::size_t stream, long count) {
        while (taken[stream] < count && Expect(Take(stream), "packets missing", count - taken[stream])) {
        }
    }

    std::array<std::atomic<long>, 2> taken = {};

private:
    static uint32_t BigEndian(const uint8_t *bytes) {
        return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
    }
};

struct Holdings {
    long threads = static_cast<long>(CountThreads());
    long descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    long residentKiB = Resident();

private:
    static long Resident() {
        malloc_trim(0);                                  // what the C library keeps for later is not held by us
        std::ifstream rollup("/proc/self/smaps_rollup"); // exact, unlike what the kernel counts by the way
        long figure = 0;
        for (std::string word; figure == 0 && rollup >> word;)
            if (word == "Rss:") rollup >> figure;
        return figure;
    }
};

// Fails unless threads and descriptors are the same again and memory has grown no further; tells the figures.
inline void ExpectSameHoldings(const std::string &what, const Holdings &before, long mostGrowthKiB = 64) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    mostGrowthKiB = 1 << 30; // those keep for a while what is freed
#endif
    const Holdings now;
    const long growth = now.residentKiB - before.residentKiB;
    Expect(now.threads == before.threads, what + ", threads more", now.threads - before.threads);
    Expect(now.descriptors == before.descriptors, what + ", descriptors more",
           now.descriptors - before.descriptors);
    Expect(growth <= mostGrowthKiB, what + ", KiB more", growth);
    fprintf(stderr, "    %ld threads, %ld descriptors, %ld KiB (%+ld)\n", now.threads, now.descriptors,
            now.residentKiB, growth);
}

} // namespace soak
