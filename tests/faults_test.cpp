// Fault reports and call-stack dumps. The test program defines the exception-report functions
// itself, so every report the library raises is recorded here instead of reaching libkfdv.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>

#include <kfdv/kfe.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

using namespace zorcam_test;
using NSCam::Utils::ULog::DETAILS_DEBUG;

namespace {

struct KfeReport {
    std::string kind;
    std::string module;
    const char* path;
    unsigned int flags;
    std::string message;
};

std::vector<KfeReport> gReports;
int gKfeResult = 0;

int recordReport(const char* kind, const char* module, const char* path, unsigned int flags,
                 const char* msg) {
    gReports.push_back({kind, module ? module : "<null>", path, flags, msg ? msg : "<null>"});
    return gKfeResult;
}

}  // namespace

extern "C" int kfe_system_warning(const char* module, const char* path, unsigned int flags,
                                  const char* msg) {
    return recordReport("warning", module, path, flags, msg);
}

extern "C" int kfe_system_exception(const char* module, const char* path, unsigned int flags,
                                    const char* msg) {
    return recordReport("exception", module, path, flags, msg);
}

namespace {

using Trigger = int (*)(const char*, const char*, const char*, ...);

struct TriggerCase {
    const char* kind;
    const char* function;
    Trigger trigger;
};

const TriggerCase kTriggers[] = {
        {"warning", "triggerKfeWarning", &NSCam::Utils::triggerKfeWarning},
        {"exception", "triggerKfeException", &NSCam::Utils::triggerKfeException},
};

class FaultsTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        gReports.clear();
        gKfeResult = 0;
    }
};

TEST_F(FaultsTest, ReportCarriesModuleFlagsAndFormattedMessage) {
    for (const auto& c : kTriggers) {
        SCOPED_TRACE(c.function);
        gReports.clear();
        clearLogs();
        // The service's answer shows only in the debug line; the caller always gets 0.
        gKfeResult = -5;
        EXPECT_EQ(c.trigger("cam", "whatever", "fps %d", 15), 0);
        ASSERT_EQ(gReports.size(), 1u);
        EXPECT_EQ(gReports[0].kind, c.kind);
        EXPECT_EQ(gReports[0].module, "cam");
        EXPECT_EQ(gReports[0].path, nullptr);
        EXPECT_EQ(gReports[0].flags, 0x10802C05u);
        EXPECT_EQ(gReports[0].message, "fps 15");
        expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/Utils", std::string("[") + c.function + "] ret:-5");
    }
}

TEST_F(FaultsTest, MessageHasNoLengthLimitAndIsNotFormattedAgain) {
    const std::string longText(5000, 'x');
    for (const auto& c : kTriggers) {
        SCOPED_TRACE(c.function);
        gReports.clear();
        EXPECT_EQ(c.trigger("isp", nullptr, "%s|%s", longText.c_str(), "100% %s %n"), 0);
        ASSERT_EQ(gReports.size(), 1u);
        EXPECT_EQ(gReports[0].message, longText + "|100% %s %n");
    }
}

TEST_F(FaultsTest, DebugLineFollowsTheGate) {
    setULog(0x3, 3, 0x40007000);
    EXPECT_EQ(NSCam::Utils::triggerKfeWarning("cam", nullptr, "x"), 0);
    EXPECT_EQ(gReports.size(), 1u);
    expectNoLines();
}

// Kept out of line so that it has a frame of its own in the stack.
__attribute__((noinline)) void dumpFromNamedCaller(const char* suffix) {
    NSCam::Utils::dumpCallStack(suffix);
    asm volatile("" ::: "memory");  // no tail call: this frame stays on the stack
}

TEST_F(FaultsTest, CallStackIsOneInfoEntryUnderTheSuffixedTag) {
    struct {
        const char* suffix;
        const char* tag;
    } const cases[] = {{nullptr, "ZorCam/Utils"}, {"", "ZorCam/Utils/"}, {"Node", "ZorCam/Utils/Node"}};
    // The entry bypasses the front end: written with every unified switch off.
    setULog(0, 0, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tag);
        clearLogs();
        dumpFromNamedCaller(c.suffix);
        const auto lines = androidLines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].prio, 4);
        EXPECT_EQ(lines[0].tag, c.tag);
        EXPECT_TRUE(ulogLines().empty());

        // One frame per line, innermost first: the dump itself, then the function that asked.
        const std::string& text = lines[0].text;
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text.rfind("#00 ", 0), 0u) << text;
        const std::string firstLine = text.substr(0, text.find('\n'));
        EXPECT_NE(firstLine.find("dumpCallStack"), std::string::npos) << text;
        const size_t callerAt = text.find("dumpFromNamedCaller");
        ASSERT_NE(callerAt, std::string::npos) << text;
        EXPECT_EQ(text.rfind("\n#01 ", callerAt), text.find('\n')) << text;
    }
}

TEST(KfdvStandIn, WritesOneLinePerReportAndAcceptsIt) {
    // This program's own definitions shadow the stand-in's; reach past them to libkfdv.
    auto real = reinterpret_cast<int (*)(const char*, const char*, unsigned int, const char*)>(
            dlsym(RTLD_NEXT, "kfe_system_exception"));
    ASSERT_NE(real, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(real("cam", nullptr, 0x10802C05, "fps 15"), 0);
    EXPECT_EQ(real(nullptr, nullptr, 0, nullptr), 0);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err,
              "kfe exception: module=cam path=(null) flags=0x10802c05 msg=fps 15\n"
              "kfe exception: module=(null) path=(null) flags=0 msg=(null)\n");
}

}  // namespace
