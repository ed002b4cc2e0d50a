#include "sim/fleet/fleet_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "sim/model/user_day.h"

namespace sim {
namespace {

enum FleetSalt : uint32_t { kProfileSalt = 101, kSeedSalt = 102 };

}  // namespace

std::vector<FleetPhone> DrawPhones(uint32_t fleetSeed, int phones,
                                   const std::vector<std::string>& profiles, int shard,
                                   int shards) {
    std::vector<FleetPhone> out;
    if (profiles.empty() || shards < 1 || shard < 0 || shard >= shards) {
        return out;
    }
    for (int i = shard; i < phones; i += shards) {
        FleetPhone p;
        p.index = i;
        const double u = Noise(fleetSeed, i, kProfileSalt);
        p.profile = profiles[std::min(
            profiles.size() - 1, static_cast<size_t>(u * static_cast<double>(profiles.size())))];
        p.seed = static_cast<uint32_t>(Noise(fleetSeed, i, kSeedSalt) * 4294967296.0);
        out.push_back(p);
    }
    return out;
}

bool ParseShard(const std::string& text, int& shard, int& shards) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == text.size()) {
        return false;
    }
    const std::string a = text.substr(0, slash), b = text.substr(slash + 1);
    auto digits = [](const std::string& s) {
        return s.size() <= 6 &&
               std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (!digits(a) || !digits(b)) {
        return false;
    }
    shard = atoi(a.c_str());
    shards = atoi(b.c_str());
    return shards >= 1 && shards <= 100000 && shard < shards;
}

double Percentile(std::vector<double>& values, double p) {
    values.erase(
        std::remove_if(values.begin(), values.end(), [](double v) { return !std::isfinite(v); }),
        values.end());
    if (values.empty()) {
        return NAN;
    }
    std::sort(values.begin(), values.end());
    const double rank = std::clamp(p, 0.0, 100.0) / 100.0 * static_cast<double>(values.size() - 1);
    const size_t lo = static_cast<size_t>(std::floor(rank));
    const size_t hi = std::min(values.size() - 1, lo + 1);
    return values[lo] + (rank - static_cast<double>(lo)) * (values[hi] - values[lo]);
}

}  // namespace sim
