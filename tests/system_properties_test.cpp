// The host system-property stand-in and the default unified logger.

#include "TempDir.h"

#include <zorcam/ulog/ULog.h>

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <thread>

static std::string get(const char* key, const char* def = nullptr) {
    char value[PROPERTY_VALUE_MAX];
    const int n = property_get(key, value, def);
    EXPECT_EQ(static_cast<size_t>(n), strlen(value));
    return value;
}

// Values of up to 91 bytes, an empty one reading as unset; a default longer than a value may
// be is cut to fit the caller's buffer. Numbers parse in any base C does (the property fuzz
// target checks the rest of the parsing against the lines that set the values).
TEST(PropertiesTest, GetSetAndNumbers) {
    const std::string fits(91, 'v');
    EXPECT_EQ(get("test.zorcam.a", "fallback"), "fallback");
    EXPECT_TRUE(property_set("test.zorcam.a", "0x7fffffffffffffff") == 0 &&
                property_get_int32("test.zorcam.a", -1) == -1 &&
                property_get_int64("test.zorcam.a", -1) == INT64_MAX &&
                property_get_bool("test.zorcam.a", -1) == -1);
    EXPECT_EQ(property_set("test.zorcam.a", ""), 0);
    EXPECT_EQ(get("test.zorcam.a", std::string(200, 'd').c_str()), std::string(91, 'd'));
    EXPECT_TRUE(property_set("test.zorcam.a", (fits + "v").c_str()) < 0 &&
                property_set("", "x") < 0 && property_set(nullptr, "x") < 0 &&
                property_set("test.zorcam.a", fits.c_str()) == 0);
    EXPECT_EQ(get("test.zorcam.a"), fits);
}

TEST(PropertiesTest, ConcurrentWriterAndReaderSeeWholeValues) {
    const std::string a(60, 'a'), b(30, 'b');
    std::thread writer([&] {
        for (int i = 0; i < 10000; ++i) property_set("test.zorcam.b", (i % 2 ? a : b).c_str());
    });
    int torn = 0;
    for (int i = 0; i < 10000; ++i) {
        const std::string v = get("test.zorcam.b");
        torn += !v.empty() && v != a && v != b;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

// The file named by ZORCAM_PROPERTIES is read once, on first use, so it needs a fresh process;
// a NUL byte would cut the value short for every reader, so its line is skipped.
TEST(PropertiesFile, SeedsTheStoreAndSkipsMalformedLines) {
    zorcam_test::TempDir dir;
    std::ofstream(dir / "build.prop")
            << "# comment\n\n  spaced.key = spaced value  \nplain=1\nno equals sign\n=novalue\n"
            << "long=" << std::string(100, 'x') << "\n"
            << std::string("nul=a\0b\n", 8) << "last=end";
    ASSERT_EQ(system(("ZORCAM_PROPERTIES=" + (dir / "build.prop") + " " ZORCAM_TEST_EMULATOR
                      " " SYSTEM_PROPERTIES_PROBE " spaced.key plain long nul last missing >" +
                      (dir / "out") + " 2>" + (dir / "err")).c_str()), 0);
    EXPECT_EQ(zorcam_test::readFile(dir / "out"),
              "spaced.key=[spaced value]\nplain=[1]\nlong=[]\nnul=[]\nlast=[end]\nmissing=[]\n");
    const std::string at = "properties: " + (dir / "build.prop") + ":";
    EXPECT_EQ(zorcam_test::readFile(dir / "err"),
              at + "5: malformed line skipped\n" + at + "6: malformed line skipped\n" + at +
                      "7: value of long longer than 91 bytes, skipped\n" + at +
                      "8: malformed line skipped\n");
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
