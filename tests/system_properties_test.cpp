// The host system-property stand-in and the default unified logger.

#include <zorcam/ulog/ULog.h>

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <atomic>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

class PropertiesTest : public testing::Test {
protected:
    void TearDown() override {
        for (const char* key : {"test.zorcam.a", "test.zorcam.b", "test.zorcam.n"})
            property_set(key, "");
    }
};

std::string get(const char* key, const char* def = nullptr) {
    char value[PROPERTY_VALUE_MAX];
    const int n = property_get(key, value, def);
    EXPECT_EQ(static_cast<size_t>(n), strlen(value));
    return value;
}

}  // namespace

TEST_F(PropertiesTest, GetReturnsValueOrDefaultWithinTheLengthLimit) {
    EXPECT_EQ(get("test.zorcam.a", "fallback"), "fallback");
    ASSERT_EQ(property_set("test.zorcam.a", "value"), 0);
    EXPECT_EQ(get("test.zorcam.a", "fallback"), "value");
    ASSERT_EQ(property_set("test.zorcam.a", ""), 0);  // empty reads as unset
    EXPECT_EQ(get("test.zorcam.a", "fallback"), "fallback");
    EXPECT_EQ(get("test.zorcam.a"), "");
    // A default longer than a value may be is cut to fit the caller's buffer.
    EXPECT_EQ(get("test.zorcam.a", std::string(200, 'd').c_str()), std::string(91, 'd'));

    const std::string fits(91, 'v');
    EXPECT_EQ(property_set("test.zorcam.a", fits.c_str()), 0);
    EXPECT_LT(property_set("test.zorcam.a", (fits + "v").c_str()), 0);
    EXPECT_EQ(get("test.zorcam.a"), fits);
    EXPECT_LT(property_set("", "x"), 0);
    EXPECT_LT(property_set(nullptr, "x"), 0);
}

TEST_F(PropertiesTest, TypedReadsParseLikeLibcutils) {
    const struct {
        const char* text;
        int32_t as32;
        int64_t as64;
        int8_t asBool;
    } cases[] = {
        {"42", 42, 42, -1},
        {"0x10", 16, 16, -1},
        {"010", 8, 8, -1},
        {"2147483648", -99, 2147483648LL, -1},  // out of 32-bit range
        {"-2147483649", -99, -2147483649LL, -1},
        {"9223372036854775808", -99, -99, -1},   // out of 64-bit range
        {"12abc", -99, -99, -1},                 // trailing junk
        {"1", 1, 1, 1},
        {"0", 0, 0, 0},
        {"yes", -99, -99, 1},
        {"off", -99, -99, 0},
        {"maybe", -99, -99, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(property_set("test.zorcam.n", c.text), 0);
        EXPECT_EQ(property_get_int32("test.zorcam.n", -99), c.as32);
        EXPECT_EQ(property_get_int64("test.zorcam.n", -99), c.as64);
        EXPECT_EQ(property_get_bool("test.zorcam.n", -1), c.asBool);
    }
}

TEST_F(PropertiesTest, ConcurrentWritersAndReadersSeeWholeValues) {
    const std::string a(60, 'a');
    const std::string b(30, 'b');
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5000; ++i)
                property_set("test.zorcam.a", (i + t) % 2 ? a.c_str() : b.c_str());
        });
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                const std::string v = get("test.zorcam.a");
                if (!v.empty() && v != a && v != b) ++torn;
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(torn.load(), 0);
}

// The file named by ZORCAM_PROPERTIES is read once, on first use, so it needs a fresh process.
TEST(PropertiesFile, SeedsTheStoreAndSkipsMalformedLines) {
    char dir[] = "/tmp/zorcam_props_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string props = std::string(dir) + "/build.prop";
    const std::string out = std::string(dir) + "/out";
    const std::string err = std::string(dir) + "/err";
    {
        std::ofstream f(props);
        f << "# comment\n\n  spaced.key = spaced value  \nplain=1\nno equals sign\n=novalue\n"
          << "long=" << std::string(100, 'x') << "\nlast=end";
    }
    const std::string cmd = "ZORCAM_PROPERTIES=" + props + " " ZORCAM_TEST_EMULATOR
                            " " SYSTEM_PROPERTIES_PROBE " spaced.key plain long last missing >" +
                            out + " 2>" + err;
    ASSERT_EQ(system(cmd.c_str()), 0);
    std::ifstream o(out);
    std::string printed((std::istreambuf_iterator<char>(o)), std::istreambuf_iterator<char>());
    EXPECT_EQ(printed, "spaced.key=[spaced value]\nplain=[1]\nlong=[]\nlast=[end]\nmissing=[]\n");
    std::ifstream e(err);
    std::string errors((std::istreambuf_iterator<char>(e)), std::istreambuf_iterator<char>());
    EXPECT_NE(errors.find(":5: malformed line skipped"), std::string::npos) << errors;
    EXPECT_NE(errors.find(":6: malformed line skipped"), std::string::npos) << errors;
    EXPECT_NE(errors.find(":7: value of long longer than 91 bytes"), std::string::npos) << errors;
    for (const auto& p : {props, out, err}) unlink(p.c_str());
    rmdir(dir);
}

TEST(DefaultULogger, WritesOneLineAndReadsNoFurtherThanTheLength) {
    using NSCam::Utils::ULog::ULogger;
    fflush(stderr);
    FILE* capture = tmpfile();
    ASSERT_NE(capture, nullptr);
    const int saved = dup(STDERR_FILENO);
    dup2(fileno(capture), STDERR_FILENO);
    // Not NUL-terminated: the logger must stop at the length.
    const char unterminated[4] = {'w', 'x', 'y', 'z'};
    ULogger::sULogger->logText(0x40007001, "Tag", NSCam::Utils::ULog::DETAILS_WARNING,
                               unterminated, 4);
    ULogger::sULogger->logText(0x1234, "T2", NSCam::Utils::ULog::DETAILS_VERBOSE, "abcdef", 3);
    ULogger::sULogger->logText(0x1, "T3", NSCam::Utils::ULog::DETAILS_ERROR, "ab\0cd", 5);
    fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    rewind(capture);
    char buf[256] = {};
    const size_t n = fread(buf, 1, sizeof(buf) - 1, capture);
    fclose(capture);
    EXPECT_EQ(std::string(buf, n), "W 40007001 Tag: wxyz\nV 00001234 T2: abc\nE 00000001 T3: ab\n");
}
