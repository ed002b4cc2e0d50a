// quen-sim's fleet mode.
//
//   quen-sim fleet [SCENARIO.json] --phones N [--seed S] [--profiles P,Q,...] [--shard I/N]
//                  [--without-quen | --config FILE] [--jobs J] [--days D] [--speed X]
//                  [--out DIR] [--quen PATH]
//     runs the phones of shard I of N (default 0/1: all), each drawn from the profiles
//     (default: every profile) with the seed, at most J at once; writes
//     DIR/shard-I-of-N.json and each phone's results in DIR/phones/NNNNN/. Unsharded, it
//     merges at once into DIR/fleet.json and DIR/fleet.html.
//   quen-sim fleet merge [--out DIR] PATH...
//     merges shard files (PATH a file, or a folder holding shard-*.json files) into
//     percentiles p5/p50/p95 of each summary figure; DIR defaults to the first folder.
//
// Exit status: 0 all phones completed (merge: every phone has a result); 1 some failed or
// are missing; 2 bad usage, or nothing could start; 130 interrupted.
//
// Threads: the process's main thread (it forks the phones' processes).
#pragma once

#include "sim/lab/lab_command.h"

namespace sim {

int FleetMain(int argc, char** argv, const SimDefaults& defaults);

}  // namespace sim
