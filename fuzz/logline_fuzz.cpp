// The log reader of `zorcam-util report`. The input is both raw capture text, fed line by line
// to the reader (it must never crash, read outside a line or overflow), and the recipe of lines
// formatted here, each checked against what was put in:
// - a line in each logcat form and the host's form reads back as its pid, tid, level, tag and
//   message;
// - a pacing line reads back as its figures when they are in range, and is counted as
//   unreadable, never read as other figures, when one is not.

#include <fuzzer/FuzzedDataProvider.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "LogLine.h"
#include "LogReport.h"

namespace {

using zorcam_util::LibraryEvent;
using zorcam_util::LibraryLine;
using zorcam_util::LogEntry;

[[noreturn]] void fail(const char* what, const std::string& line) {
    fprintf(stderr, "logline_fuzz: %s\n  line: %s\n", what, line.c_str());
    abort();
}

// Text without line ends, as a capture's line is.
std::string lineText(FuzzedDataProvider& in, size_t max) {
    std::string s = in.ConsumeRandomLengthString(max);
    for (char& c : s)
        if (c == '\n' || c == '\r') c = ' ';
    return s;
}

void checkForms(FuzzedDataProvider& in) {
    static const char* const kTags[] = {"ZorCam/Utils", "ZorCam/FrameController", "CamApp",
                                        "Cam/x(1)", "ZorCam/DebugDrawID"};
    // threadtime, time (year, usec), brief, the host's liblog
    static const char* const kForms[] = {"11-24 12:31:33.123 %2$5d %3$5d %4$c %1$-8s: ",
                                         "2026-11-24 12:31:33.123456 %4$c/%1$-8s(%2$5d): ",
                                         "%4$c/%1$s(%2$d): ", "%1$s %4$c 11-24 12:31:33 %2$5d %3$5d "};
    const int pid = in.ConsumeIntegralInRange(0, 99999999);
    const int tid = in.ConsumeIntegralInRange(0, 99999999);
    const char level = "VDIWEF"[in.ConsumeIntegralInRange(0, 5)];
    const std::string tag = kTags[in.ConsumeIntegralInRange(0, 4)];
    const std::string message = lineText(in, 200);
    const int form = in.ConsumeIntegralInRange(0, 3);
    // The time and brief forms end the tag at the last "(" before "): ", so a message that
    // holds "): " would move it; such lines are ambiguous in logcat itself.
    if ((form == 1 || form == 2) && message.find("): ") != std::string::npos) return;
    char head[160];
    snprintf(head, sizeof(head), kForms[form], tag.c_str(), pid, tid, level);
    const std::string line = head + message;
    LogEntry e;
    if (!zorcam_util::parseLogLine(line, &e)) fail("a well-formed line is not read", line);
    if (e.pid != pid || e.level != level || e.tag != tag || e.message != message ||
        ((form == 0 || form == 3) && e.tid != tid) || (form != 2 && e.timeNs < 0)) {
        fail("a line reads back other than written", line);
    }
}

void checkPacing(FuzzedDataProvider& in) {
    static const char* const kKeys[] = {"ct", "cft", "cddt", "oddt", "nddt", "max",
                                        "min", "fi", "ti", "stc", "st"};
    // What each figure may be: a time, then spans up to a day, a flag, a sleep up to a day.
    constexpr int64_t kTime = 100000000000000000, kDay = 86400000000000;
    static const int64_t kLow[] = {0, -kTime, -kDay, -kDay, -kDay, -kDay, -kDay, -kDay, -kDay, 0, 0};
    static const int64_t kHigh[] = {kTime, kTime, kDay, kDay, kDay, kDay, kDay, kDay, kDay, 1,
                                    kDay / 1000};
    int64_t v[11];
    bool inRange = true;
    std::string line = "ZorCam/FrameController I 11-24 12:31:33  100   101 [bufferControl][";
    line += lineText(in, 20) + "] off:";
    for (int k = 0; k < 11; ++k) {
        v[k] = in.ConsumeBool() ? in.ConsumeIntegralInRange<int64_t>(-2000, 40000000000)
                                : in.ConsumeIntegralInRange<int64_t>(INT64_MIN + 1, INT64_MAX);
        inRange = inRange && v[k] >= kLow[k] && v[k] <= kHigh[k];
        char figure[64];
        snprintf(figure, sizeof(figure), k == 10 ? "%s(%" PRId64 " us)" : "%s(%" PRId64 "),",
                 kKeys[k], v[k]);
        line += figure;
    }
    LogEntry e;
    LibraryEvent ev;
    if (!zorcam_util::parseLogLine(line, &e)) fail("a pacing line is not read", line);
    if (zorcam_util::readLibraryLine(e, &ev) !=
        (inRange ? LibraryLine::kRead : LibraryLine::kUnreadable)) {
        fail(inRange ? "figures in range are refused" : "figures out of range are read", line);
    }
    for (int k = 0; inRange && k < 11; ++k)
        if (ev.kind != LibraryEvent::kPaced || ev.values[k] != v[k])
            fail("a figure reads back wrong", line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The raw input as a capture.
    zorcam_util::LogReader reader;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    uint64_t lineNo = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        reader.line(text.substr(start, end - start), ++lineNo);
        start = end + 1;
    }
    if (reader.result().lines != lineNo) fail("lines were lost", std::string(text.substr(0, 200)));

    FuzzedDataProvider in(data, size);
    while (in.remaining_bytes() > 0) {
        if (in.ConsumeBool())
            checkForms(in);
        else
            checkPacing(in);
    }
    return 0;
}
