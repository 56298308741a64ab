// What the fuzz targets share: a check that ends the run, and reading an input as settings followed by data.
// Every target is one LLVMFuzzerTestOneInput; setup.cpp prepares the process for all of them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

namespace rtsptap::fuzz {

inline void Require(bool holds) {
    if (!holds) __builtin_trap();
}

inline std::string_view TextOf(const uint8_t *data, std::size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// Takes numbers and texts off the front of an input; past its end everything is 0 or empty.
class Input {
public:
    Input(const uint8_t *data, std::size_t size) : rest_(TextOf(data, size)) {}

    bool IsEmpty() const { return rest_.empty(); }
    uint8_t U8() { return rest_.empty() ? uint8_t{0} : static_cast<uint8_t>(Take(1).front()); }
    uint16_t U16() {
        const uint8_t high = U8();
        return static_cast<uint16_t>(high << 8 | U8());
    }
    std::string_view Take(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    std::string_view Counted() { return Take(U8()); } // a length byte, then as much
    std::string_view Rest() { return Take(rest_.size()); }
    template <typename T, std::size_t N> T Pick(const T (&choices)[N]) { return choices[U8() % N]; }

private:
    std::string_view rest_;
};

} // namespace rtsptap::fuzz
