// Limitator base: the combination rule, the integer change test and the kernel writes shared
// by the limitators. Every member here runs under the caller's lock_.
#include "protectors/soh_limitator.h"

#include <cmath>
#include <limits>

#include "core/soh_estimator.h"
#include "protectors/limit_nodes.h"

SOHLimitator::Combined SOHLimitator::Combine(const std::map<std::string, double>& demands,
                                             Wins wins) {
    Combined best;
    bool first = true;
    for (const auto& demand : demands) {
        bool better =
            (wins == Wins::kSmallest) ? demand.second < best.value : demand.second > best.value;
        if (first || better) {
            best.winner = demand.first;
            best.value = demand.second;
            first = false;
        }
    }
    return best;
}

int32_t SOHLimitator::TruncToInt32(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
        return std::numeric_limits<int32_t>::max();
    }
    if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
        return std::numeric_limits<int32_t>::min();
    }
    return static_cast<int32_t>(value);
}

void SOHLimitator::StoreDemand(SOHEstimator* estimator) {
    demands_[estimator->GetName()] = estimator->GetLimitValue(this);
}

std::vector<std::string> SOHLimitator::WriteVtermDec(std::vector<ChargerType>& types,
                                                     const std::string& winner, int limit) {
    std::vector<std::string> dropped;
    for (ChargerType& t : types) {
        if (t.failures >= kMaxTypeFailures) {
            continue;
        }
        if (WriteLimitToKernel(winner, LimitNodes::kVtermDec, t.type, limit) == 0) {
            t.failures = 0;
        } else if (++t.failures == kMaxTypeFailures) {
            dropped.push_back(t.type);
        }
    }
    return dropped;
}

bool SOHLimitator::MatchType(const std::vector<ChargerType>& types, const std::string& type) {
    if (type == "all") {
        return true;
    }
    for (const ChargerType& t : types) {
        if (t.type == type) {
            return true;
        }
    }
    return false;
}
