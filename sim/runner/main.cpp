// quen-sim: runs the real daemon against a simulated phone for days or months of simulated
// time, beside the phone without the daemon, and writes a side-by-side report. Subcommands:
// "lab" (several configurations and user profiles side by side) and "fleet" (many phones,
// percentiles, shards). The command lines are described in sim/lab/lab_command.h and
// sim/fleet/fleet_command.h.
#include <cstring>

#include "sim/fleet/fleet_command.h"
#include "sim/lab/lab_command.h"

int main(int argc, char** argv) {
    const sim::SimDefaults defaults{QUEN_SOURCE_DIR "/sim/scenarios/default.json", QUEN_BINARY,
                                    QUEN_SOURCE_DIR "/sim/scenarios/profiles"};
    if (argc >= 2 && strcmp(argv[1], "lab") == 0) {
        return sim::LabMain(argc - 1, argv + 1, defaults);
    }
    if (argc >= 2 && strcmp(argv[1], "fleet") == 0) {
        return sim::FleetMain(argc - 1, argv + 1, defaults);
    }
    return sim::PlainRunMain(argc, argv, defaults);
}
