// Host platform substitutes: the contract tools and tests rely on.
#include <android/log.h>
#include <bms_interface.h>
#include <cutils/properties.h>
#include <openssl/sha.h>
#include <securec.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/fake_device.h"

namespace {

TEST(SecureC, CopiesAndTextThatDoNotFitAreErrorsAndClearTheDestination) {
    char buf[4] = "abc";
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), "xyz"), EOK);
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), "wxyz"), SECUREC_ERANGE_AND_RESET);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), nullptr), SECUREC_EINVAL_AND_RESET);
    EXPECT_EQ(strcpy_s(buf, 0, "a"), SECUREC_ERANGE);
    EXPECT_EQ(strncpy_s(buf, sizeof(buf), "abcdef", 3), EOK);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strncpy_s(buf, sizeof(buf), "abcdef", 4), SECUREC_ERANGE_AND_RESET);
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), buf + 1), SECUREC_EOVERLAP_AND_RESET);

    unsigned char mem[8];
    EXPECT_EQ(memset_s(mem, sizeof(mem), 0x5a, sizeof(mem)), EOK);
    EXPECT_EQ(memset_s(mem, 4, 0, 5), SECUREC_ERANGE_AND_RESET);
    EXPECT_EQ(mem[3], 0);
    EXPECT_EQ(mem[4], 0x5a);  // never past destMax
    const unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(memmove_s(mem, 4, src, 5), SECUREC_ERANGE_AND_RESET);
    EXPECT_EQ(mem[0], 0);

    char text[8];
    EXPECT_EQ(sprintf_s(text, sizeof(text), "%d", 1234567), 7);
    EXPECT_EQ(sprintf_s(text, sizeof(text), "%d", 12345678), -1);
    EXPECT_STREQ(text, "");
    // count below destMax: the cut is kept but still reported.
    EXPECT_EQ(snprintf_s(text, sizeof(text), 3, "%s", "abcdef"), -1);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(snprintf_s(text, sizeof(text), 3, "%s", "abc"), 3);
    EXPECT_EQ(snprintf_s(text, sizeof(text), sizeof(text), "%s", "abcdefgh"), -1);
    EXPECT_STREQ(text, "");
}

TEST_F(FakeDeviceTest, PropertiesAreFilesReadAfreshAndReplacedAtomically) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("ro.product.board", value, "dflt"), 4);
    EXPECT_STREQ(value, "dflt");
    dev.SetProperty("ro.product.board", "BOARD7\n");  // one trailing newline is not the value
    EXPECT_EQ(property_get("ro.product.board", value, nullptr), 6);
    EXPECT_STREQ(value, "BOARD7");

    EXPECT_EQ(property_set("ctl.stop", "quen"), 0);
    EXPECT_EQ(dev.Read("/properties/ctl.stop"), "quen");
    EXPECT_LT(property_set("../escape", "x"), 0);
    EXPECT_LT(property_set("", "x"), 0);
    EXPECT_LT(property_set("k", std::string(PROPERTY_VALUE_MAX, 'x').c_str()), 0);
    EXPECT_EQ(property_set("k", std::string(PROPERTY_VALUE_MAX - 1, 'x').c_str()), 0);

    char small[4];
    EXPECT_EQ(BmsPropertyGetValue("ro.product.board", small, sizeof(small)), -1);
    EXPECT_EQ(BmsPropertyGetValue("unset.prop", value, sizeof(value)), -1);
    EXPECT_EQ(BmsPropertySetValue("vendor.soh_service", "start"), 0);
    EXPECT_EQ(dev.Property("vendor.soh_service"), "start");
}

TEST_F(FakeDeviceTest, BootModesFollowTheirProperties) {
    EXPECT_TRUE(BmsPropertyIsNormalMode());
    EXPECT_FALSE(BmsPropertyIsChargerMode());
    dev.SetProperty("ro.bootmode", "charger");
    EXPECT_TRUE(BmsPropertyIsChargerMode());
    EXPECT_FALSE(BmsPropertyIsNormalMode());
    dev.SetProperty("ro.bootmode", "factory");
    EXPECT_TRUE(BmsPropertyIsFactoryMode());
    dev.SetProperty("ro.bootmode", "normal");
    EXPECT_TRUE(BmsPropertyIsNormalMode());
    EXPECT_FALSE(BmsPropertyIsDemoVersion());
    dev.SetProperty("ro.product.demo", "1");
    EXPECT_TRUE(BmsPropertyIsDemoVersion());
}

TEST_F(FakeDeviceTest, BigDataEventIsOneJsonLineWithFieldsInOrder) {
    void* h = BmsBigDataCreate(0, 930001007);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(BmsBigDataWriteLong(0, h, "ActDays", 0), 0);
    EXPECT_EQ(BmsBigDataWriteInt(0, h, "Lvl", -3), 0);
    EXPECT_EQ(BmsBigDataWriteFloat(0, h, "Fcc", 0.5f), 0);
    EXPECT_EQ(BmsBigDataWriteString(0, h, "BatMod", "a\"b\n"), 0);
    int arr[3] = {1, 2, 3};
    EXPECT_EQ(BmsBigDataWriteArrayInt(0, h, "Arr", arr, 3), 0);
    EXPECT_EQ(BmsBigDataSend(1, h), 0);
    BmsBigDataDestroy(0, h);
    EXPECT_EQ(dev.Read("/bms/bigdata.jsonl"),
              "{\"id\":930001007,\"fields\":[{\"key\":\"ActDays\",\"type\":\"long\",\"value\":0},"
              "{\"key\":\"Lvl\",\"type\":\"int\",\"value\":-3},"
              "{\"key\":\"Fcc\",\"type\":\"float\",\"value\":0.5},"
              "{\"key\":\"BatMod\",\"type\":\"string\",\"value\":\"a\\\"b\\n\"},"
              "{\"key\":\"Arr\",\"type\":\"int[]\",\"value\":[1,2,3]}]}\n");

    dev.Write("/bms/unavailable", "");
    EXPECT_EQ(BmsBigDataCreate(0, 930001007), nullptr);
}

TEST_F(FakeDeviceTest, LogLinesGoToTheLogFileWithoutDoubledNewlines) {
    setenv("QUEN_LOG_FILE", dev.HostPath("/quen.log").c_str(), 1);
    __android_log_write(ANDROID_LOG_INFO, "quen", "hello\n");
    __android_log_write(ANDROID_LOG_ERROR, "quen", "no newline");
    unsetenv("QUEN_LOG_FILE");
    // "YYYY-MM-DD HH:MM:SS.mmm PID TID L TAG: message"
    const std::string head =
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )" + std::to_string(getpid()) + R"( \d+ )";
    EXPECT_TRUE(std::regex_match(dev.Read("/quen.log"), std::regex(head + "I quen: hello\n" + head +
                                                                   "E quen: no newline\n")))
        << dev.Read("/quen.log");
    EXPECT_EQ(dev.CountLog("hello\n"), 1);  // the in-process sink sees the same messages
}

TEST(CryptoHost, Sha256IsTheLibrarysDigestLoadedOnFirstUse) {
    unsigned char digest[SHA256_DIGEST_LENGTH] = {};
    ASSERT_EQ(SHA256(reinterpret_cast<const unsigned char*>("abc"), 3, digest), digest);
    std::string hex;
    for (unsigned char b : digest) {
        char two[3];
        snprintf(two, sizeof(two), "%02x", b);
        hex += two;
    }
    EXPECT_EQ(hex, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(FakeDeviceTest, LogLinesCarryTheWritersProcessAndThread) {
    setenv("QUEN_LOG_FILE", dev.HostPath("/ids.log").c_str(), 1);
    __android_log_write(ANDROID_LOG_INFO, "quen", "main");
    long worker = 0;
    std::thread([&worker] {
        worker = syscall(SYS_gettid);
        __android_log_write(ANDROID_LOG_INFO, "quen", "worker");
    }).join();
    pid_t child = fork();
    if (child == 0) {
        __android_log_write(ANDROID_LOG_INFO, "quen", "child");  // ids of the child, not cached
        _exit(0);
    }
    ASSERT_GT(child, 0);
    waitpid(child, nullptr, 0);
    __android_log_write(ANDROID_LOG_INFO, "quen", "main again");
    unsetenv("QUEN_LOG_FILE");

    std::map<std::string, std::pair<long, long>> ids;  // message -> (pid, tid)
    std::istringstream lines(dev.Read("/ids.log"));
    for (std::string day, time, level, tag, message; lines >> day >> time;) {
        long pid = 0;
        long tid = 0;
        lines >> pid >> tid >> level >> tag;
        std::getline(lines >> std::ws, message);
        ids[message] = {pid, tid};
    }
    const long self = getpid();
    EXPECT_EQ(ids["main"], std::make_pair(self, static_cast<long>(syscall(SYS_gettid))));
    EXPECT_EQ(ids["main again"], ids["main"]);
    EXPECT_EQ(ids["worker"], std::make_pair(self, worker));
    EXPECT_EQ(ids["child"], std::make_pair(static_cast<long>(child), static_cast<long>(child)));
}

}  // namespace
