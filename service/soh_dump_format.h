// Formatting a dump state (soh_dump.h) for people and for programs.
//
// Text: one block per topic, protectors answering "which limit, from whom, since when", e.g.
//     NonDcCurLimitator   1500  from APP  since 2024-06-01 12:00:00 +0000 (45 s ago)
//       APP    1500  <- in force
//       BASP   2000
// JSON (jsoncpp, styled): the same facts under stable keys; times as seconds since the epoch
// ("changed_at", null when never) with a local-time text beside them, ages in seconds; the
// SOC protector's "value" is null (its tables are under "strategies", the one in force named
// by "winner").
// Local times are those of the clock seam, as in the log.
//
// Pure functions of their argument: no locks, callable from any thread.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "service/soh_dump.h"

// True when the dump arguments ask for JSON ("--json").
bool DumpWantsJson(const std::vector<std::string>& args);
std::string FormatDumpText(const SohDumpState& state);
Json::Value DumpToJson(const SohDumpState& state);
std::string FormatDumpJson(const SohDumpState& state);
