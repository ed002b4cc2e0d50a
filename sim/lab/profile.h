// User profiles: how a phone's owner uses and charges it, as a set of model parameters laid
// over a scenario's own. A profile is a JSON file:
//
//   { "description": "plugs in at night on a slow charger",
//     "model": { "plug_hour": 22, "unplug_hour": 7, "adapter": "dcp" } }
//
// named by its path, or by a bare name found in the simulator's profile folder
// (sim/scenarios/profiles/NAME.json).
//
// Threads: plain functions; no shared state.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

namespace sim {

struct UserProfile {
    std::string name;  // the file's stem
    std::string description;
    Json::Value model;  // object of model parameters
};

// Loads the profile `nameOrPath`; a bare name ([A-Za-z0-9_-]+) is looked up in `profileDir`.
// False with a message naming the file and the problem.
bool LoadProfile(const std::string& nameOrPath, const std::string& profileDir, UserProfile& out,
                 std::string& error);

// The scenario's model object with the profile's keys laid over it (a key of the profile
// wins), checked as model parameters. False with a message when the result is not valid.
bool ApplyProfile(const Json::Value& scenarioModel, const UserProfile& profile, Json::Value& out,
                  std::string& error);

// The bare names of the profiles in `profileDir`, sorted.
std::vector<std::string> ListProfiles(const std::string& profileDir);

}  // namespace sim
