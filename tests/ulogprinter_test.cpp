#include "LogCapture.h"

#include <zorcam/utils/std/ULogPrinter.h>

using namespace zorcam_test;
using NSCam::Utils::ULog::ULogPrinter;

static constexpr uint32_t kModule = 0x40007001;
static constexpr const char* kTag = "ZorCam/Profile";

using ULogPrinterTest = LogCaptureTest;

// The switches, the printer's module and details type, and the priority of the printer's
// Android lines (0 when the gate stops them). Both lines of a passing printer reach each sink
// its mode bit selects (bit 0 the Android log, 0xE the unified logger), with the printer's tag,
// module and type.
TEST_F(ULogPrinterTest, GateSinksAndPriority) {
    const struct { uint32_t mode, level, mask, module, type; int prio; } cases[] = {
        // The priority of each type, anything unknown debug's.
        {0x3, ~0u, 0x40007000, kModule, 1, 6}, {0x3, ~0u, 0x40007000, kModule, 2, 5},
        {0x3, ~0u, 0x40007000, kModule, 3, 4}, {0x3, ~0u, 0x40007000, kModule, 6, 2},
        {0x3, ~0u, 0x40007000, kModule, 4, 3}, {0x3, ~0u, 0x40007000, kModule, 9, 3},
        // The level, errors' too; type 9 needs level 9.
        {0x3, 2, 0x40007000, kModule, 3, 0}, {0x3, 2, 0x40007000, kModule, 2, 5},
        {0x3, 0, 0x40007000, kModule, 1, 0}, {0x3, 8, 0xFFFFFFFF, kModule, 9, 0},
        // No category bit, which warnings skip; a masked id below 0x100000; another module.
        {0x3, 6, 0x40000000, kModule, 3, 0}, {0x3, 6, 0x40000000, kModule, 2, 5},
        {0x3, 9, 0x00007000, kModule, 9, 0}, {0x3, 6, 0x00F01000, 0x00301000, 5, 3},
        {0x3, 6, 0x00F01000, 0x00300000, 5, 0},
        // The sinks: neither, the Android log only, the unified logger only.
        {0x0, 6, 0x40007000, kModule, 2, 5}, {0x1, 6, 0x40007000, kModule, 2, 5},
        {0x4, 6, 0x40007000, kModule, 2, 5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        setULog(c.mode, c.level, c.mask);
        clearLogs();
        ULogPrinter printer(c.module, kTag, static_cast<DetailsType>(c.type));
        printer.printLine("a");
        printer.printFormatLine("%s", "b");
        const auto a = androidLines();
        const auto u = ulogLines();
        const std::string ab[] = {"a", "b"};
        ASSERT_EQ(a.size(), c.prio != 0 && (c.mode & 0x1) ? 2u : 0u);
        ASSERT_EQ(u.size(), c.prio != 0 && (c.mode & 0xE) ? 2u : 0u);
        for (size_t i = 0; i < a.size(); ++i)
            EXPECT_TRUE(a[i].prio == c.prio && a[i].tag == kTag && a[i].text == ab[i]) << i;
        for (size_t i = 0; i < u.size(); ++i)
            EXPECT_TRUE(u[i].moduleId == c.module && u[i].type == c.type && u[i].tag == kTag &&
                        u[i].text == ab[i] && u[i].length == 1) << i;
    }
}

// printFormatLine formats into 1023 characters for both sinks; printLine passes text whole.
// A long tag is cut to 63 characters for the unified logger only, and the prefix is the
// Android printer's alone.
TEST_F(ULogPrinterTest, CutsOfFormattedLinesAndTags) {
    const std::string tag(80, 't'), f(1023, 'f'), p(3000, 'p');
    ULogPrinter printer(kModule, tag.c_str(), NSCam::Utils::ULog::DETAILS_WARNING, "pre: ");
    printer.printFormatLine("%s%s", f.c_str(), p.c_str());
    printer.printLine(p.c_str());
    const auto a = androidLines();
    const auto u = ulogLines();
    ASSERT_TRUE(a.size() == 2u && u.size() == 2u);
    EXPECT_TRUE(a[0].text == "pre: " + f && a[1].text == "pre: " + p && a[0].tag == tag);
    EXPECT_TRUE(u[0].text == f && u[0].length == 1023 && u[0].tag == tag.substr(0, 63));
    EXPECT_TRUE(u[1].text == p && u[1].length == 3000);
}
