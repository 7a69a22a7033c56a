// The process-wide property store: typed reads, replacement, clear, the writers' log lines,
// and readers and writers running together.

#include "LogCapture.h"

#include <zorcam/utils/std/Property.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace zorcam_test;
using android::String8;
using NSCam::Utils::ULog::DETAILS_DEBUG;
namespace Property = NSCam::Utils::Property;

namespace {

class PropertyTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        Property::clear();
        clearLogs();
    }
    void TearDown() override {
        Property::clear();
        LogCaptureTest::TearDown();
    }

    static std::string ids() {
        return std::to_string(getpid()) + "/" + std::to_string(gettid());
    }
};

TEST_F(PropertyTest, MissingKeyReadsNothingAndKeepsValues) {
    const String8 key("camera.never.set");
    String8 text("keep");
    bool flag = true;
    int number = 77;
    float real = 2.5f;
    EXPECT_FALSE(Property::hasKey(key));
    EXPECT_FALSE(Property::tryGet(key, text));
    EXPECT_FALSE(Property::tryGet(key, flag));
    EXPECT_FALSE(Property::tryGet(key, number));
    EXPECT_FALSE(Property::tryGet(key, real));
    EXPECT_EQ(text, String8("keep"));
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(real, 2.5f);
    expectNoLines();
}

TEST_F(PropertyTest, SetReplacesAndLogsUnderTheWriteLock) {
    Property::set(String8("k"), String8("first"));
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/Utils", "[set] pid/tid=" + ids() + " (k)=(first)");
    clearLogs();

    Property::set(String8("k"), String8("12"));
    String8 text;
    int number = 0;
    EXPECT_TRUE(Property::hasKey(String8("k")));
    EXPECT_TRUE(Property::tryGet(String8("k"), text));
    EXPECT_EQ(text, String8("12"));
    EXPECT_TRUE(Property::tryGet(String8("k"), number));
    EXPECT_EQ(number, 12);
    // One line for the change; the readers write nothing.
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/Utils", "[set] pid/tid=" + ids() + " (k)=(12)");
}

TEST_F(PropertyTest, ClearRemovesEveryKey) {
    for (const char* key : {"a", "b", "c"}) Property::set(String8(key), String8("1"));
    clearLogs();
    Property::clear();
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/Utils", "[clear] pid/tid=" + ids());
    for (const char* key : {"a", "b", "c"}) EXPECT_FALSE(Property::hasKey(String8(key))) << key;
    // The store stays usable after a clear.
    Property::set(String8("a"), String8("2"));
    EXPECT_TRUE(Property::hasKey(String8("a")));
}

TEST_F(PropertyTest, WriterLinesFollowTheDebugGate) {
    setULog(0x3, 3, 0x40007000);
    Property::set(String8("k"), String8("v"));
    Property::clear();
    expectNoLines();
}

TEST_F(PropertyTest, TypedReadsConvertOnEveryRead) {
    struct Case {
        const char* text;
        bool intOk;
        int asInt;
        bool floatOk;
        float asFloat;
    };
    const Case cases[] = {
            {"12", true, 12, true, 12.0f},    {"-3", true, -3, true, -3.0f},
            {"0", true, 0, true, 0.0f},       {"1.5", false, 0, true, 1.5f},
            {"abc", false, 0, false, 0.0f},   {"7up", false, 0, false, 0.0f},
            {"", false, 0, false, 0.0f},      {"0x10", false, 0, true, 16.0f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string("text \"") + c.text + "\"");
        Property::set(String8("v"), String8(c.text));
        int number = -99;
        float real = -99.0f;
        bool flag = false;
        bool flagFailed = true;
        EXPECT_EQ(Property::tryGet(String8("v"), number), c.intOk);
        EXPECT_EQ(number, c.intOk ? c.asInt : -99);
        EXPECT_EQ(Property::tryGet(String8("v"), real), c.floatOk);
        EXPECT_EQ(real, c.floatOk ? c.asFloat : -99.0f);
        // A flag reads as a number: any non-zero value is true.
        EXPECT_EQ(Property::tryGet(String8("v"), flag), c.intOk);
        EXPECT_EQ(flag, c.intOk && c.asInt != 0);
        EXPECT_EQ(Property::tryGet(String8("v"), flagFailed), c.intOk);
        EXPECT_EQ(flagFailed, c.intOk ? c.asInt != 0 : true);
        String8 text;
        EXPECT_TRUE(Property::tryGet(String8("v"), text));
        EXPECT_EQ(std::string(text.c_str()), c.text);
    }
}

// Several writers and readers over a few keys. Every value is "<key>:<writer>:<n>", so a
// reader can tell a torn or invented value from one that was written.
TEST_F(PropertyTest, ConcurrentReadersSeeOnlyWrittenValues) {
    constexpr int kWriters = 3;
    constexpr int kReaders = 3;
    constexpr int kKeys = 4;
    constexpr int kWrites = 1500;
    constexpr int kReads = 3000;
    const std::string keys[kKeys] = {"k0", "k1", "k2", "k3"};

    std::atomic<int> badReads{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([&, w] {
            for (int n = 0; n < kWrites; ++n) {
                const std::string& key = keys[(n + w) % kKeys];
                const std::string value =
                        key + ":" + std::to_string(w) + ":" + std::to_string(n);
                Property::set(String8(key.c_str()), String8(value.c_str()));
            }
        });
    }
    for (int r = 0; r < kReaders; ++r) {
        threads.emplace_back([&, r] {
            for (int n = 0; n < kReads; ++n) {
                const int k = (n + r) % kKeys;
                const std::string& key = keys[k];
                String8 value;
                if (!Property::tryGet(String8(key.c_str()), value)) continue;
                int w = -1, i = -1;
                char tail = 0;
                const std::string prefix = key + ":";
                const std::string text(value.c_str());
                const bool ok = text.rfind(prefix, 0) == 0 &&
                                sscanf(text.c_str() + prefix.size(), "%d:%d%c", &w, &i, &tail) ==
                                        2 &&
                                w >= 0 && w < kWriters && i >= 0 && i < kWrites &&
                                (i + w) % kKeys == k;
                if (!ok) badReads++;
                int number = 0;
                // Never a number: every read of one must fail, never crash or succeed.
                if (Property::tryGet(String8(key.c_str()), number)) badReads++;
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(badReads.load(), 0);

    // Each change was logged while it held the write lock, so the last line for a key names the
    // value the key ended with.
    std::map<std::string, std::string> lastLogged;
    for (const auto& l : ulogLines()) {
        const size_t open = l.text.find(" (");
        if (l.text.rfind("[set] ", 0) != 0 || open == std::string::npos) continue;
        const std::string pair = l.text.substr(open + 2, l.text.size() - open - 3);
        const size_t mid = pair.find(")=(");
        lastLogged[pair.substr(0, mid)] = pair.substr(mid + 3);
    }
    ASSERT_EQ(lastLogged.size(), static_cast<size_t>(kKeys));
    for (const std::string& key : keys) {
        String8 value;
        ASSERT_TRUE(Property::tryGet(String8(key.c_str()), value)) << key;
        EXPECT_EQ(lastLogged[key], value.c_str()) << key;
    }
    EXPECT_EQ(ulogLines().size(), static_cast<size_t>(kWriters * kWrites));
}

}  // namespace
