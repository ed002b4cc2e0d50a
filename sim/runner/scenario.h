// A simulator scenario: which device tree to start from, when and how long to run, how fast,
// and the phone model's parameters. Read from a JSON file (comments allowed):
//
//   {
//     "name": "default",                  // names the output folder; [A-Za-z0-9_.-]+
//     "device": "../../examples/device",  // device tree, relative to the scenario file
//     "start": "2026-03-01 08:00:00",     // local time in "timezone"
//     "timezone": "CST-8",                // a TZ value; the daemon gets the same
//     "days": 40,                         // simulated days, (0, 3650]
//     "speed": 40000,                     // with --accelerated: simulated seconds per real
//                                         // second, [1, 1e6] (default: the virtual clock)
//     "sample_minutes": 10,               // trace period, simulated minutes, [1, 1440]
//     "model": { ... },                   // phone model parameters (see sim/model)
//     "properties": {"name": "value"},    // properties set before the daemon starts
//     "nodes": {"class/...": "text"}      // node contents replacing the tree's
//   }
//
// Every key but "device" and "days" has a default. Unknown keys are errors, so that a typo
// does not silently run a different scenario.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <map>
#include <string>

namespace sim {

struct Scenario {
    std::string file;  // the scenario file as given
    std::string name;
    std::string deviceDir;  // resolved path of the device tree
    std::string timezone = "CST-8";
    int64_t startEpoch = 0;  // seconds since the epoch
    double days = 0;
    double speed = 40000;
    double sampleSeconds = 600;
    Json::Value model;  // null: the model's defaults
    std::map<std::string, std::string> properties;
    std::map<std::string, std::string> nodes;
};

// Loads and checks a scenario. False with a message naming the file and the problem.
bool LoadScenario(const std::string& path, Scenario& out, std::string& error);

// Makes `root` a fresh device root for the scenario: a mount left over there by a killed run
// is detached, the folder is emptied, the device tree copied in and the scenario's properties
// and node values written. False with a message on failure.
bool PrepareRoot(const Scenario& sc, const std::string& root, std::string& error);

}  // namespace sim
