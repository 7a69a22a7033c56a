// Fault reports and call-stack dumps. The program defines the report functions itself, so the
// reports the library raises are recorded here instead of reaching libkfdv.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>

#include <kfdv/kfe.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

using namespace zorcam_test;

namespace {

// Each report as "<kind> <module> <path> <flags> <message>".
std::vector<std::string> gReports;

int record(const char* kind, const char* module, const char* path, unsigned flags,
           const char* msg) {
    char head[96];
    snprintf(head, sizeof(head), "%s %s %s %#x ", kind, module, path ? path : "(null)", flags);
    gReports.push_back(head + std::string(msg));
    return -5;  // the service's answer shows in the debug line only
}

}  // namespace

extern "C" int kfe_system_warning(const char* m, const char* p, unsigned f, const char* msg) {
    return record("warning", m, p, f, msg);
}
extern "C" int kfe_system_exception(const char* m, const char* p, unsigned f, const char* msg) {
    return record("exception", m, p, f, msg);
}

namespace {

class FaultsTest : public LogCaptureTest {};

TEST_F(FaultsTest, ReportsCarryModuleFlagsAndFormattedText) {
    using Trigger = int (*)(const char*, const char*, const char*, ...);
    const std::tuple<Trigger, std::string, std::string> cases[] = {
            {&NSCam::Utils::triggerKfeWarning, "warning", "triggerKfeWarning"},
            {&NSCam::Utils::triggerKfeException, "exception", "triggerKfeException"}};
    for (const auto& [trigger, kind, name] : cases) {
        SCOPED_TRACE(kind);
        gReports.clear();
        clearLogs();
        EXPECT_EQ(trigger("cam", "ignored", "fps %d", 15), 0);
        // The text is handed over as is, never used as a format again.
        EXPECT_EQ(trigger("isp", nullptr, "%s", "100% %s %n"), 0);
        EXPECT_EQ(gReports, (std::vector<std::string>{kind + " cam (null) 0x10802c05 fps 15",
                                                      kind + " isp (null) 0x10802c05 100% %s %n"}));
        const auto u = ulogLines();
        ASSERT_EQ(u.size(), 2u);
        EXPECT_EQ(u[0].type, NSCam::Utils::ULog::DETAILS_DEBUG);
        EXPECT_EQ(u[0].text, "[" + name + "] ret:-5");
    }
}

// Out of line and not a tail call, so that it has a frame of its own in the stack.
__attribute__((noinline)) void dumpFromNamedCaller(const char* suffix) {
    NSCam::Utils::dumpCallStack(suffix);
    asm volatile("" ::: "memory");
}

TEST_F(FaultsTest, CallStackIsOneInfoEntryStartingAtTheCaller) {
    setULog(0, 0, 0);  // the entry bypasses the front end and its switches
    const std::pair<const char*, const char*> cases[] = {
            {nullptr, "ZorCam/Utils"}, {"", "ZorCam/Utils/"}, {"Node", "ZorCam/Utils/Node"}};
    for (const auto& [suffix, tag] : cases) {
        SCOPED_TRACE(tag);
        clearLogs();
        dumpFromNamedCaller(suffix);
        const auto a = androidLines();
        ASSERT_EQ(a.size(), 1u);
        EXPECT_TRUE(a[0].prio == 4 && a[0].tag == tag && ulogLines().empty()) << a[0].tag;
        // One frame per line: #00 is the dump itself, #01 the function that asked for it.
        const std::string& text = a[0].text;
        const size_t second = text.find("\n#01 ") + 1;
        ASSERT_EQ(text.rfind("#00 ", 0), 0u) << text;
        EXPECT_NE(text.substr(0, second).find("dumpCallStack"), std::string::npos) << text;
        const std::string callerLine = text.substr(second, text.find('\n', second) - second);
        EXPECT_NE(callerLine.find("dumpFromNamedCaller("), std::string::npos) << text;
    }
}

}  // namespace
