#include "dialect/dialect.h"

#include <algorithm>
#include <iterator>

namespace rtsptap {

static_assert(std::ranges::adjacent_find(kRules, std::ranges::greater_equal{}, &RuleRow::number) ==
                  std::end(kRules),
              "rules are in the order of their numbers, each of which is there once");

Rule FindRule(int32_t number) {
    const RuleRow *const row = std::ranges::find(kRules, number, &RuleRow::number);
    return Rule{static_cast<std::size_t>(row - kRules)};
}

bool Dialect::Permits(Rule rule) const {
    if (!IsOn(rule)) return false;
    uses_[Index(rule)].fetch_add(1, std::memory_order_relaxed);
    return true;
}

void Dialect::Choose(int32_t dialect) {
    chosen_ = dialect;
    for (std::size_t i = 0; i < kRuleCount; ++i) Set(Rule{i}, (kRules[i].dialects >> dialect & 1U) != 0);
}

} // namespace rtsptap
