// The daemon's command line: what ends at once and starts nothing, the host build's refusal to
// run without a device root, warnings for what it ignores, and --check-config's exit statuses.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

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

// quenctl beside a running daemon: its own --help and --version, and status --watch.
class QuenctlTest : public CliTest {
protected:
    void SetUp() override { dev.CopyTree("examples/device"); }
    void TearDown() override {
        for (pid_t* pid : {&watch_, &daemon_}) {
            if (*pid > 0) {
                kill(*pid, SIGKILL);
                waitpid(*pid, nullptr, 0);
                *pid = -1;
            }
        }
    }
    // Starts `argv` with standard output into the device file `out` and standard error gone.
    pid_t Spawn(std::vector<std::string> args, const std::string& out) {
        std::vector<char*> argv;
        for (std::string& a : args) {
            argv.push_back(&a[0]);
        }
        argv.push_back(nullptr);
        const std::string outPath = dev.HostPath(out);
        pid_t pid = fork();
        if (pid == 0) {
            int fd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int null = open("/dev/null", O_WRONLY);
            if (fd < 0 || null < 0 || dup2(fd, 1) < 0 || dup2(null, 2) < 0) {
                _exit(127);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        return pid;
    }
    // Waits (bounded, on the file's content) until `text` occurs `n` times in device file `path`.
    bool WaitForCount(const std::string& path, const std::string& text, int n) {
        for (int i = 0; i < 6000; ++i) {
            const std::string content = dev.Read(path);
            int count = 0;
            for (size_t at = content.find(text); at != std::string::npos;
                 at = content.find(text, at + 1)) {
                ++count;
            }
            if (count >= n) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    pid_t daemon_ = -1;
    pid_t watch_ = -1;
};

TEST_F(QuenctlTest, HelpAndVersion) {
    const std::string ctl = "'" QUENCTL_BINARY "' ";
    const std::string out = dev.HostPath("/ctl.out");
    EXPECT_EQ(system((ctl + "--version >'" + out + "'").c_str()), 0);
    EXPECT_EQ(dev.Read("/ctl.out").rfind("quenctl ", 0), 0u);
    EXPECT_EQ(system((ctl + "--help >'" + out + "'").c_str()), 0);
    EXPECT_NE(dev.Read("/ctl.out").find("--watch"), std::string::npos);
    EXPECT_NE(system((ctl + "status --watch x 2>/dev/null").c_str()), 0);
}

TEST_F(QuenctlTest, StatusWatchRedrawsUntilInterrupted) {
    daemon_ = Spawn({QUEN_BINARY, "-d"}, "/quen.out");
    ASSERT_GT(daemon_, 0);
    for (int i = 0; i < 3000 && dev.Property("vendor.soh_service") != "start"; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(dev.Property("vendor.soh_service"), "start");

    watch_ =
        Spawn({QUENCTL_BINARY, "--root", dev.Root(), "status", "--watch", "0.05"}, "/watch.out");
    ASSERT_GT(watch_, 0);
    // Two whole frames: the third heading starts only after the second frame was drawn.
    ASSERT_TRUE(WaitForCount("/watch.out", "== status ", 3)) << dev.Read("/watch.out");
    ASSERT_EQ(kill(watch_, SIGINT), 0);
    int status = 0;
    ASSERT_EQ(waitpid(watch_, &status, 0), watch_);
    watch_ = -1;
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    const std::string frames = dev.Read("/watch.out");
    const size_t second = frames.find("== status ", 1);
    const size_t third = frames.find("== status ", second + 1);
    const std::string frame = frames.substr(second, third - second);
    EXPECT_EQ(frame.find("cannot connect"), std::string::npos) << frame;
    EXPECT_GT(std::count(frame.begin(), frame.end(), '\n'), 2) << frame;  // a dump, not a heading
}

}  // namespace
