// What is accepted of servers that do not speak as the base interface expects. Every such difference is one named
// rule, a row of rules.inc; a dialect is the set of rules that are on. Code asks for the rule by its name at the
// one place where it matters, and the answer is counted, so that a program can be told what its server needs.
//
// A session embeds one. The application's thread chooses the rules, any thread asks; parsers that need no session
// get the dialect by reference.
#pragma once

#include "rtsptap_extended.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rtsptap {

enum class Rule : std::size_t { // also the index of its row
#define RTSPTAP_RULE(name, ...) name,
#include "dialect/rules.inc"
#undef RTSPTAP_RULE
};

using DialectSet = uint32_t; // one bit per RTSPTapDialect
inline constexpr DialectSet kTolerant = 1U << RTSPTAP_DIALECT_TOLERANT;

struct RuleRow {
    int32_t number;
    const char *name;
    const char *permits;
    const char *senders;
    const char *section;
    DialectSet dialects; // it is on in
};

inline constexpr RuleRow kRules[] = {
#define RTSPTAP_RULE(name, ...) {__VA_ARGS__},
#include "dialect/rules.inc"
#undef RTSPTAP_RULE
};
inline constexpr std::size_t kRuleCount = std::size(kRules);

// The rule with that public number; kRuleCount as a Rule when there is none.
inline constexpr Rule kNoRule{kRuleCount};
Rule FindRule(int32_t number);

class Dialect {
public:
    Dialect() = default; // exact
    Dialect(const Dialect &) = delete;
    Dialect &operator=(const Dialect &) = delete;

    // Whether the rule is on; counts a use of it. Asked when something has been met that only the rule permits.
    bool Permits(Rule rule) const;
    // The same without counting, for what is decided before anything has been met.
    bool IsOn(Rule rule) const { return on_[Index(rule)].load(std::memory_order_relaxed); }
    uint64_t Uses(Rule rule) const { return uses_[Index(rule)].load(std::memory_order_relaxed); }

    // ---- Application thread ----
    void Choose(int32_t dialect); // every rule as it is in that RTSPTapDialect
    void Set(Rule rule, bool on) { on_[Index(rule)].store(on, std::memory_order_relaxed); }
    int32_t Chosen() const { return chosen_; }

private:
    static constexpr std::size_t Index(Rule rule) { return static_cast<std::size_t>(rule); }

    int32_t chosen_ = RTSPTAP_DIALECT_EXACT; // whatever single rules have been set since
    std::array<std::atomic<bool>, kRuleCount> on_ = {};
    mutable std::array<std::atomic<uint64_t>, kRuleCount> uses_ = {};
};

} // namespace rtsptap
