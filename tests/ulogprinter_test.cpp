#include "LogCapture.h"

#include <zorcam/utils/std/ULogPrinter.h>

#include <gtest/gtest.h>

#include <string>

using namespace zorcam_test;
using NSCam::Utils::ULog::DetailsType;
using NSCam::Utils::ULog::ULogPrinter;

namespace {
constexpr uint32_t kModule = 0x40007001;
constexpr const char* kTag = "ZorCam/Profile";
}  // namespace

class ULogPrinterTest : public LogCaptureTest {};

TEST_F(ULogPrinterTest, PriorityFollowsTheDetailsType) {
    setULog(0x3, 0xFFFFFFFF, 0x40007000);
    const struct { uint32_t type; int prio; } cases[] = {
        {1, 6}, {2, 5}, {3, 4}, {4, 3}, {5, 3}, {6, 2}, {9, 3}, {0, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type);
        clearLogs();
        ULogPrinter printer(kModule, kTag, static_cast<DetailsType>(c.type), nullptr, false);
        printer.printLine("line");
        expectOnlyLine(c.prio, static_cast<DetailsType>(c.type), kTag, "line");
    }
}

TEST_F(ULogPrinterTest, GateAndModeBitsChooseTheSinks) {
    const struct { uint32_t mode, level, mask, module, type; bool prints; } cases[] = {
        {0x3, 2, 0x40007000, kModule, 3, false},  // level below info
        {0x3, 2, 0x40007000, kModule, 2, true},
        {0x3, 0, 0x40007000, kModule, 1, false},  // errors are level-tested too
        {0x3, 6, 0x40000000, kModule, 5, false},  // no category bit
        {0x3, 6, 0x40000000, kModule, 2, true},   // warnings skip the module test
        {0x3, 8, 0xFFFFFFFF, kModule, 9, false},  // type 9 needs level 9
        {0x3, 9, 0x40007000, kModule, 9, true},
        {0x3, 9, 0x00007000, kModule, 9, false},  // masked id below 0x100000
        {0x3, 6, 0x00F01000, 0x00301000, 5, true},  // another module under its own id
        {0x3, 6, 0x00F01000, 0x00300000, 5, false},
        {0x1, 6, 0x40007000, kModule, 2, true},  // the Android log only
        {0x4, 6, 0x40007000, kModule, 2, true},  // the unified logger only
        {0x0, 6, 0x40007000, kModule, 2, true},  // neither
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << "mode " << c.mode << " level " << c.level
                                        << " mask " << c.mask << " module " << c.module
                                        << " type " << c.type);
        setULog(c.mode, c.level, c.mask);
        clearLogs();
        ULogPrinter printer(c.module, kTag, static_cast<DetailsType>(c.type));
        printer.printLine("a");
        printer.printFormatLine("%s", "b");
        EXPECT_EQ(androidLines().size(), c.prints && (c.mode & 0x1) ? 2u : 0u);
        EXPECT_EQ(ulogLines().size(), c.prints && (c.mode & 0xE) ? 2u : 0u);
    }
}

// printFormatLine formats into 1023 characters for both sinks; printLine passes text whole.
// A long tag is cut to 63 characters for the unified logger only, and the prefix is the
// Android printer's alone.
TEST_F(ULogPrinterTest, CutsOfFormattedLinesAndTags) {
    const std::string tag(80, 't');
    ULogPrinter printer(kModule, tag.c_str(), NSCam::Utils::ULog::DETAILS_WARNING, "pre: ");
    printer.printFormatLine("%s", std::string(1500, 'f').c_str());
    printer.printLine(std::string(3000, 'p').c_str());
    const auto a = androidLines();
    const auto u = ulogLines();
    ASSERT_TRUE(a.size() == 2u && u.size() == 2u);
    EXPECT_EQ(a[0].text, "pre: " + std::string(1023, 'f'));
    EXPECT_EQ(a[1].text, "pre: " + std::string(3000, 'p'));
    EXPECT_EQ(a[0].tag, tag);
    EXPECT_EQ(u[0].tag, tag.substr(0, 63));
    EXPECT_TRUE(u[0].text == std::string(1023, 'f') && u[0].length == 1023);
    EXPECT_TRUE(u[1].text == std::string(3000, 'p') && u[1].length == 3000);
}
