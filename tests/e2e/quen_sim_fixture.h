// The quen-sim program run as a user runs it, for the end-to-end tests of the simulator.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "sim/fakefs/fake_kernel.h"
#include "tests/support/fake_device.h"

class QuenSimTest : public FakeDeviceTest {
protected:
    // Runs quen-sim with `args` (output in DIR/run.txt); returns its exit status.
    int Run(const std::string& args) { return RunIn(args, "/run.txt"); }
    int RunIn(const std::string& args, const std::string& outputFile) {
        std::string cmd =
            std::string(QUEN_SIM_BINARY) + " " + args + " >'" + dev.HostPath(outputFile) + "' 2>&1";
        int status = system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string Output() { return dev.Read("/run.txt"); }
    std::string Scenario(const std::string& body) {
        dev.Write("/scenario.json", body);
        return dev.HostPath("/scenario.json");
    }
    static bool Mounted(const std::string& dir) {
        std::ifstream mounts("/proc/mounts");
        std::string line;
        while (std::getline(mounts, line)) {
            if (line.find(" " + dir + " ") != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    int Rows(const std::string& csv) {
        std::istringstream in(dev.Read(csv));
        std::string line;
        int rows = -1;  // the header
        while (std::getline(in, line)) {
            ++rows;
        }
        return rows;
    }
    static bool HaveFuse() {
        std::string reason;
        return sim::FakeKernel::Available(reason);
    }
    const std::string device = std::string(QUEN_SOURCE_DIR) + "/examples/device";
};
