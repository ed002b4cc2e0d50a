// The daemon's command line: what ends at once and starts nothing, the host build's refusal to
// run without a device root, warnings for what it ignores, and --check-config's exit statuses.
#include <sys/wait.h>

#include "tests/support/fake_device.h"

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class CliTest : public FakeDeviceTest {
protected:
    // Runs the binary through the shell with `env` prefixed (e.g. "env -u QUEN_ROOT"); the
    // fake device's root is QUEN_ROOT unless `env` says otherwise.
    Outcome Quen(const std::string& args, const std::string& env = "") {
        const std::string out = dev.HostPath("/cli.out");
        const std::string err = dev.HostPath("/cli.err");
        const std::string cmd = "cd '" + dev.Root() + "' && " + env + " '" QUEN_BINARY "' " + args +
                                " >'" + out + "' 2>'" + err + "' </dev/null";
        Outcome o;
        const int raw = system(cmd.c_str());
        o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        o.out = dev.Read("/cli.out");
        o.err = dev.Read("/cli.err");
        dev.Remove("/cli.out");
        dev.Remove("/cli.err");
        return o;
    }
};

TEST_F(CliTest, HelpAndVersionPrintAndStartNothing) {
    for (const char* args : {"--help", "--version", "-d --version", "--help --bogus"}) {
        Outcome o = Quen(args);
        EXPECT_EQ(o.status, 0) << args;
        EXPECT_FALSE(o.out.empty()) << args;
        // Nothing started: the working directory the daemon prepares first is not there.
        EXPECT_FALSE(dev.Exists("/log/soh")) << args;
    }
    EXPECT_EQ(Quen("--version").out.rfind("quen ", 0), 0u);
    EXPECT_NE(Quen("--help").out.find("--check-config"), std::string::npos);
}

TEST_F(CliTest, HostBuildRefusesToRunWithoutADeviceRoot) {
    for (const char* env : {"env -u QUEN_ROOT", "env QUEN_ROOT="}) {
        Outcome o = Quen("-d", env);
        EXPECT_EQ(o.status, 2) << env;
        EXPECT_NE(o.err.find("QUEN_ROOT"), std::string::npos) << o.err;
        EXPECT_NE(o.err.find("--root"), std::string::npos) << o.err;
        EXPECT_TRUE(o.out.empty());
    }
    Outcome missing = Quen("--root");
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("--root needs a directory"), std::string::npos);
}

TEST_F(CliTest, CheckConfigOnTheSampleDeviceAndOnABrokenCopy) {
    dev.CopyTree("examples/device");
    Outcome clean =
        Quen("--check-config --bogus", "env -u QUEN_ROOT QUEN_ROOT='" + dev.Root() + "'");
    EXPECT_EQ(clean.status, 0) << clean.out;
    EXPECT_NE(clean.out.find("result: OK"), std::string::npos) << clean.out;
    EXPECT_NE(clean.out.find("chosen: /odm/etc/power/quen.json"), std::string::npos);
    EXPECT_NE(clean.err.find("ignoring unknown option --bogus"), std::string::npos);
    EXPECT_FALSE(dev.Exists("/log/soh/sys_para.dat"));

    // --root wins over QUEN_ROOT; a broken key is named by its path, also in JSON.
    std::string text = dev.Read("/odm/etc/power/quen.json");
    text.replace(text.find("\"IChargerMax\": 6000"), 19, "\"IChargerMax\": \"6000\"");
    dev.Write("/copy/odm/etc/power/quen.json", text);
    Outcome broken = Quen("--check-config --root '" + dev.HostPath("/copy") + "'");
    EXPECT_EQ(broken.status, 1);
    EXPECT_NE(broken.out.find("Estimators.BASP.Battery[0].IChargerMax: expected an unsigned "
                              "integer (mA), found string \"6000\""),
              std::string::npos)
        << broken.out;
    Outcome json =
        Quen("--check-config '" + dev.HostPath("/copy/odm/etc/power/quen.json") + "' --json");
    EXPECT_EQ(json.status, 1);
    Json::Value doc;
    ASSERT_TRUE(Json::Reader().parse(json.out, doc)) << json.out;
    EXPECT_EQ(doc["problems"][0]["path"].asString(), "Estimators.BASP.Battery[0].IChargerMax");

    Outcome unreadable = Quen("--check-config '" + dev.HostPath("/nothing.json") + "'");
    EXPECT_EQ(unreadable.status, 2);
}

}  // namespace
