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
    const int pid = in.ConsumeIntegralInRange(0, 99999999);
    const int tid = in.ConsumeIntegralInRange(0, 99999999);
    const char level = "VDIWEF"[in.ConsumeIntegralInRange(0, 5)];
    const std::string tag = kTags[in.ConsumeIntegralInRange(0, 4)];
    std::string message = lineText(in, 200);
    const int form = in.ConsumeIntegralInRange(0, 3);
    char head[160];
    switch (form) {
        case 0:  // threadtime
            snprintf(head, sizeof(head), "11-24 12:31:33.123 %5d %5d %c %-8s: ", pid, tid, level,
                     tag.c_str());
            break;
        case 1:  // time
            snprintf(head, sizeof(head), "2026-11-24 12:31:33.123456 %c/%-8s(%5d): ", level,
                     tag.c_str(), pid);
            break;
        case 2:  // brief
            snprintf(head, sizeof(head), "%c/%s(%d): ", level, tag.c_str(), pid);
            break;
        default:  // the host's liblog
            snprintf(head, sizeof(head), "%s %c 11-24 12:31:33 %5d %5d ", tag.c_str(), level, pid,
                     tid);
    }
    // The time and brief forms end the tag at the last "(" before "): ", so a message that
    // holds "): " would move it; such lines are ambiguous in logcat itself.
    if ((form == 1 || form == 2) && message.find("): ") != std::string::npos) return;
    const std::string line = head + message;
    LogEntry e;
    if (!zorcam_util::parseLogLine(line, &e)) fail("a well-formed line is not read", line);
    if (e.pid != pid || e.level != level || e.tag != tag || e.message != message)
        fail("a line reads back other than written", line);
    if ((form == 0 || form == 3) && e.tid != tid) fail("the thread reads back wrong", line);
    if (form != 2 && e.timeNs < 0) fail("a stamped line has no time", line);
}

void checkPacing(FuzzedDataProvider& in) {
    static const char* const kKeys[] = {"ct",  "cft", "cddt", "oddt", "nddt", "max",
                                        "min", "fi",  "ti",   "stc",  "st"};
    int64_t v[11];
    std::string line = "ZorCam/FrameController I 11-24 12:31:33  100   101 [bufferControl][";
    line += lineText(in, 20) + "] off:";
    for (int k = 0; k < 11; ++k) {
        v[k] = in.ConsumeBool() ? in.ConsumeIntegralInRange<int64_t>(-2000, 40000000000)
                                : in.ConsumeIntegral<int64_t>();
        if (v[k] == INT64_MIN) v[k] = 0;
        char figure[64];
        snprintf(figure, sizeof(figure), k == 10 ? "%s(%" PRId64 " us)" : "%s(%" PRId64 "),",
                 kKeys[k], v[k]);
        line += figure;
    }
    const bool inRange = v[0] >= 0 && v[0] <= 100000000000000000 && v[1] >= -100000000000000000 &&
                         v[1] <= 100000000000000000 && v[9] >= 0 && v[9] <= 1 && v[10] >= 0 &&
                         v[10] <= 86400000000 && [&v] {
                             for (int k = 2; k <= 8; ++k)
                                 if (v[k] < -86400000000000 || v[k] > 86400000000000) return false;
                             return true;
                         }();
    LogEntry e;
    LibraryEvent ev;
    if (!zorcam_util::parseLogLine(line, &e)) fail("a pacing line is not read", line);
    const LibraryLine read = zorcam_util::readLibraryLine(e, &ev);
    if (read != (inRange ? LibraryLine::kRead : LibraryLine::kUnreadable))
        fail(inRange ? "figures in range are refused" : "figures out of range are read", line);
    if (!inRange) return;
    if (ev.kind != LibraryEvent::kPaced) fail("a pacing line reads as something else", line);
    for (int k = 0; k < 11; ++k)
        if (ev.values[k] != v[k]) fail("a figure reads back wrong", line);
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
