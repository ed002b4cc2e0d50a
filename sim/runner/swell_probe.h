// Reads the daemon's anti-swelling record from a device root to follow its estimate: the
// swell accounted over the battery's life and over the last seven closed days, and the scene
// in force. The swell is the time table of each day weighted by the configured swell table
// (swell per day spent in each voltage/temperature bin), as the daemon computes it.
//
// Threads: one owner thread. Reads files only; a missing or damaged record answers false.
#pragma once

#include <json/json.h>

#include <string>

namespace sim {

struct SwellEstimate {
    double total = 0;  // whole history, including swell carried over from a legacy log
    double week = 0;   // the last seven closed days (0 until seven exist)
    unsigned scene = 0;
};

class SwellProbe {
public:
    // Takes the first battery's swell table from the root's configuration (/odm). False (and
    // every Read false) when the configuration has none.
    bool Init(const std::string& root, std::string& error);
    bool Read(SwellEstimate& out) const;

private:
    double Weigh(const Json::Value& swellTimes) const;
    std::string dataFile_;
    Json::Value table_;
};

}  // namespace sim
