// The process-wide property store: typed reads, replacement and clear, the writers' log lines,
// and readers racing writers (this program also runs under ThreadSanitizer).

#include "LogCapture.h"

#include <zorcam/utils/std/Property.h>

#include <unistd.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace zorcam_test;
using android::String8;
namespace Property = NSCam::Utils::Property;

namespace {

class PropertyTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        Property::clear();
        clearLogs();
    }
};

TEST_F(PropertyTest, SetReplacesClearRemovesAndOnlyWritersLog) {
    const std::string who = "pid/tid=" + std::to_string(getpid()) + "/" + std::to_string(gettid());
    Property::set(String8("k"), String8("first"));
    Property::set(String8("k"), String8("12"));
    String8 text;
    EXPECT_TRUE(Property::hasKey(String8("k")) && Property::tryGet(String8("k"), text));
    EXPECT_EQ(text, String8("12"));
    Property::clear();
    EXPECT_FALSE(Property::hasKey(String8("k")) || Property::tryGet(String8("k"), text));
    EXPECT_EQ(text, String8("12"));  // untouched by a failed read
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 3u);
    EXPECT_EQ(u[0].text, "[set] " + who + " (k)=(first)");
    EXPECT_EQ(u[1].text, "[set] " + who + " (k)=(12)");
    EXPECT_EQ(u[2].text, "[clear] " + who);
    EXPECT_EQ(u[2].type, NSCam::Utils::ULog::DETAILS_DEBUG);
}

// Every typed read converts the text anew: "12" is a number, a real and a true flag.
TEST_F(PropertyTest, TypedReadsConvertTheTextOnEveryRead) {
    const struct { const char* text; bool isInt, isFloat; float value; } cases[] = {
        {"12", true, true, 12.0f}, {"0", true, true, 0.0f},
        {"1.5", false, true, 1.5f}, {"7up", false, false, 0.0f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Property::set(String8("v"), String8(c.text));
        int number = -9;
        float real = -9.0f;
        bool flag = true;  // a flag reads as a number: non-zero is true
        EXPECT_EQ(Property::tryGet(String8("v"), number), c.isInt);
        EXPECT_EQ(Property::tryGet(String8("v"), real), c.isFloat);
        EXPECT_EQ(Property::tryGet(String8("v"), flag), c.isInt);
        EXPECT_EQ(number, c.isInt ? static_cast<int>(c.value) : -9);
        EXPECT_EQ(real, c.isFloat ? c.value : -9.0f);
        EXPECT_EQ(flag, !c.isInt || c.value != 0);
    }
}

// Writers and readers over a few keys. Every value is "k<key>:<writer>:<n>", so a torn or
// invented value cannot pass for one that was written.
TEST_F(PropertyTest, ConcurrentReadersSeeOnlyWrittenValues) {
    constexpr int kThreads = 3, kKeys = 4, kWrites = 1500, kReads = 3000;
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int n = 0; n < kWrites; ++n) {
                const std::string key = "k" + std::to_string((n + t) % kKeys);
                const std::string value = key + ":" + std::to_string(t) + ":" + std::to_string(n);
                Property::set(String8(key.c_str()), String8(value.c_str()));
            }
        });
        threads.emplace_back([t, &bad] {
            for (int n = 0; n < kReads; ++n) {
                const int k = (n + t) % kKeys;
                const String8 key(("k" + std::to_string(k)).c_str());
                String8 value;
                int key2 = -1, writer = -1, i = -1, number = 0;
                char tail = 0;
                if (Property::tryGet(key, value) &&
                    (sscanf(value.c_str(), "k%d:%d:%d%c", &key2, &writer, &i, &tail) != 3 ||
                     key2 != k || writer >= kThreads || (i + writer) % kKeys != k))
                    bad++;
                if (Property::tryGet(key, number)) bad++;  // no value is a number
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(bad.load(), 0);

    // Changes are logged under the write lock, so a key's last line names its final value.
    std::map<std::string, std::string> lastLogged;
    for (const auto& l : ulogLines()) {
        char key[8], value[32];
        if (sscanf(l.text.c_str(), "[set] pid/tid=%*d/%*d (%7[^)])=(%31[^)])", key, value) == 2)
            lastLogged[key] = value;
    }
    ASSERT_EQ(lastLogged.size(), static_cast<size_t>(kKeys));
    for (const auto& [key, logged] : lastLogged) {
        String8 value;
        EXPECT_TRUE(Property::tryGet(String8(key.c_str()), value));
        EXPECT_EQ(logged, value.c_str()) << key;
    }
}

}  // namespace
