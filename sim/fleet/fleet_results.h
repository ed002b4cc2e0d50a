// A fleet's results: each shard's partial results (one JSON file per shard job), and the merge
// of any set of shard files into percentiles (p5, p50, p95) of each summary figure, over all
// phones and per user profile:
//   DIR/fleet.json   {"fleet": {...}, "phones": n, "missing": [...], "percentiles": {...}}
//   DIR/fleet.html   the same as a self-contained page
//
// Threads: plain functions over files.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim {

// What every shard of one fleet must agree on.
struct FleetKey {
    std::string scenario;
    std::string config;  // "without-quen", "default" or the configuration file's name
    uint32_t seed = 0;
    int phones = 0;
    double days = 0;
    std::vector<std::string> profiles;
    bool operator==(const FleetKey& o) const {
        return scenario == o.scenario && config == o.config && seed == o.seed &&
               phones == o.phones && days == o.days && profiles == o.profiles;
    }
};

struct FleetPhoneResult {
    int index = 0;
    std::string profile;
    uint32_t seed = 0;
    std::string outcome;                    // the arm's outcome, or why it has no result
    bool ok = false;                        // completed with a trace
    std::map<std::string, double> figures;  // SummaryFigures by key; NaN: none
};

struct FleetShard {
    FleetKey key;
    int shard = 0;
    int shards = 1;
    std::vector<FleetPhoneResult> results;
};

bool WriteShard(const std::string& path, const FleetShard& shard, std::string& error);
bool ReadShard(const std::string& path, FleetShard& shard, std::string& error);

struct FleetMerged {
    FleetKey key;
    std::vector<FleetPhoneResult> results;  // by index, each phone once
    std::vector<int> missing;               // phones no shard holds, or that failed
};

// Merges shards of one fleet; a phone found in several shards counts once. False with a
// message when the shards belong to different fleets or there is none.
bool MergeShards(const std::vector<FleetShard>& shards, FleetMerged& out, std::string& error);

// Writes dir/fleet.json and dir/fleet.html.
bool WriteFleetReport(const std::string& dir, const FleetMerged& merged, std::string& error);

}  // namespace sim
