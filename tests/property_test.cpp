// The process-wide property store: typed reads, replacement and clear, the writers' log lines,
// and readers racing writers (this program also runs under ThreadSanitizer).

#include "LogCapture.h"

#include <zorcam/utils/std/Property.h>

#include <unistd.h>

#include <atomic>
#include <thread>

using namespace zorcam_test;
using android::String8;
namespace Property = NSCam::Utils::Property;

using PropertyTest = LogCaptureTest;

// A value replaces the one before; "12" reads as text, a number, a real and a true flag. A
// failed read leaves the value alone; only the writers log.
TEST_F(PropertyTest, SetReplacesClearRemovesAndOnlyWritersLog) {
    const std::string who = "pid/tid=" + std::to_string(getpid()) + "/" + std::to_string(gettid());
    const String8 k("k");
    String8 text;
    int number = 0;
    float real = 0;
    bool flag = false;
    Property::set(k, String8("first"));
    Property::set(k, String8("12"));
    EXPECT_TRUE(Property::hasKey(k) && Property::tryGet(k, text) && Property::tryGet(k, number) &&
                Property::tryGet(k, real) && Property::tryGet(k, flag));
    EXPECT_TRUE(text == String8("12") && number == 12 && real == 12.0f && flag);
    Property::clear();
    EXPECT_FALSE(Property::hasKey(k) || Property::tryGet(k, text) || text != String8("12"));
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 3u);
    EXPECT_EQ(u[0].text + u[1].text + u[2].text, "[set] " + who + " (k)=(first)[set] " + who +
                                                         " (k)=(12)[clear] " + who);
}

// Threads write and read a few keys at once (the even ones write too). Every value is
// "k<key>:<writer>:<n>", so a torn or invented value cannot pass for one that was written.
TEST_F(PropertyTest, ConcurrentReadersSeeOnlyWrittenValues) {
    Property::clear();
    constexpr int kThreads = 6, kKeys = 4, kRounds = 3000;
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &bad] {
            for (int n = 0; n < kRounds; ++n) {
                const std::string key = "k" + std::to_string((n + t) % kKeys);
                const std::string value = key + ":" + std::to_string(t) + ":" + std::to_string(n);
                if (t % 2 == 0) Property::set(String8(key.c_str()), String8(value.c_str()));
                String8 got;
                int k = -1, writer = -1, i = -1;
                char tail = 0;
                bad += Property::tryGet(String8(key.c_str()), got) &&
                       (sscanf(got.c_str(), "k%d:%d:%d%c", &k, &writer, &i, &tail) != 3 ||
                        "k" + std::to_string(k) != key || writer % 2 != 0 || writer >= kThreads ||
                        (i + writer) % kKeys != k);
                bad += Property::tryGet(String8(key.c_str()), i);  // no value is a number
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(bad.load(), 0);
}
