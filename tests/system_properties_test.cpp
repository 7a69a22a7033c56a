// The host system-property stand-in and the default unified logger.

#include "TempDir.h"

#include <zorcam/ulog/ULog.h>

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

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
    // A default longer than a value may be is cut to fit the caller's buffer.
    EXPECT_EQ(get("test.zorcam.a", std::string(200, 'd').c_str()), std::string(91, 'd'));

    const std::string fits(91, 'v');
    EXPECT_EQ(property_set("test.zorcam.a", fits.c_str()), 0);
    EXPECT_LT(property_set("test.zorcam.a", (fits + "v").c_str()), 0);
    EXPECT_EQ(get("test.zorcam.a"), fits);
    EXPECT_TRUE(property_set("", "x") < 0 && property_set(nullptr, "x") < 0);
}

TEST_F(PropertiesTest, TypedReadsParseLikeLibcutils) {
    // Unparsable or out-of-range text gives the default (-99 or -1).
    const struct { const char* text; int32_t as32; int64_t as64; int8_t asBool; } cases[] = {
        {"42", 42, 42, -1}, {"0x10", 16, 16, -1}, {"010", 8, 8, -1},
        {"-2147483649", -99, -2147483649LL, -1}, {"9223372036854775808", -99, -99, -1},
        {"12abc", -99, -99, -1}, {"1", 1, 1, 1}, {"0", 0, 0, 0},
        {"yes", -99, -99, 1}, {"off", -99, -99, 0}, {"maybe", -99, -99, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(property_set("test.zorcam.n", c.text), 0);
        EXPECT_EQ(property_get_int32("test.zorcam.n", -99), c.as32);
        EXPECT_EQ(property_get_int64("test.zorcam.n", -99), c.as64);
        EXPECT_EQ(property_get_bool("test.zorcam.n", -1), c.asBool);
    }
}

TEST_F(PropertiesTest, ConcurrentWriterAndReaderSeeWholeValues) {
    const std::string a(60, 'a'), b(30, 'b');
    std::thread writer([&] {
        for (int i = 0; i < 10000; ++i)
            property_set("test.zorcam.a", i % 2 ? a.c_str() : b.c_str());
    });
    int torn = 0;
    for (int i = 0; i < 10000; ++i) {
        const std::string v = get("test.zorcam.a");
        if (!v.empty() && v != a && v != b) ++torn;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

// The file named by ZORCAM_PROPERTIES is read once, on first use, so it needs a fresh process.
TEST(PropertiesFile, SeedsTheStoreAndSkipsMalformedLines) {
    zorcam_test::TempDir dir;
    std::ofstream(dir / "build.prop")
            << "# comment\n\n  spaced.key = spaced value  \nplain=1\nno equals sign\n=novalue\n"
            << "long=" << std::string(100, 'x') << "\n"
            << std::string("nul=a\0b\n", 8) << "last=end";
    const std::string cmd = "ZORCAM_PROPERTIES=" + (dir / "build.prop") +
                            " " ZORCAM_TEST_EMULATOR " " SYSTEM_PROPERTIES_PROBE
                            " spaced.key plain long nul last missing >" +
                            (dir / "out") + " 2>" + (dir / "err");
    ASSERT_EQ(system(cmd.c_str()), 0);
    EXPECT_EQ(zorcam_test::readFile(dir / "out"),
              "spaced.key=[spaced value]\nplain=[1]\nlong=[]\nnul=[]\nlast=[end]\nmissing=[]\n");
    const std::string errors = zorcam_test::readFile(dir / "err");
    // A NUL byte would cut the value short for every reader: the line is skipped.
    for (const char* line :
         {":5: malformed line skipped", ":6: malformed line skipped",
          ":7: value of long longer than 91 bytes", ":8: malformed line skipped"})
        EXPECT_NE(errors.find(line), std::string::npos) << line << " in " << errors;
}

TEST(DefaultULogger, WritesOneLineAndReadsNoFurtherThanTheLength) {
    namespace ulog = NSCam::Utils::ULog;
    testing::internal::CaptureStderr();
    const char unterminated[4] = {'w', 'x', 'y', 'z'};  // the logger must stop at the length
    ulog::ULogger::sULogger->logText(0x40007001, "Tag", ulog::DETAILS_WARNING, unterminated, 4);
    ulog::ULogger::sULogger->logText(0x1234, "T2", ulog::DETAILS_VERBOSE, "abcdef", 3);
    ulog::ULogger::sULogger->logText(0x1, "T3", ulog::DETAILS_ERROR, "ab\0cd", 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "W 40007001 Tag: wxyz\nV 00001234 T2: abc\nE 00000001 T3: ab\n");
}
