// A fleet: N phones drawn from user profiles with a seed, split into shards that run as
// independent jobs (one machine's processes, or an array job of a batch scheduler).
//
// Phone i's profile and its model seed are drawn from (fleet seed, i) alone, so the same
// phone gets the same draw in whatever shard, on whatever machine, it runs. Shard I of N
// (0 <= I < N) holds the phones whose index is I modulo N.
//
// Threads: plain values and functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct FleetPhone {
    int index = 0;
    std::string profile;  // a name from the fleet's profile list
    uint32_t seed = 0;    // the phone's model seed
};

// The phones of shard `shard` of `shards`, in index order.
std::vector<FleetPhone> DrawPhones(uint32_t fleetSeed, int phones,
                                   const std::vector<std::string>& profiles, int shard, int shards);

// "I/N" with 0 <= I < N <= 100000. False when it is not.
bool ParseShard(const std::string& text, int& shard, int& shards);

// The p-th percentile (0..100) of the finite values, interpolated between closest ranks;
// NaN when there is none. Sorts `values`.
double Percentile(std::vector<double>& values, double p);

}  // namespace sim
