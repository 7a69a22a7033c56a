#pragma once

// The synthetic camera preview of `zorcam-util demo`: what it was asked, what it measured,
// and the report written from that.

#include <cstdint>
#include <string>
#include <vector>

namespace zorcam_util {

struct DemoOptions {
    double fps = 30;
    double seconds = 5;
    int width = 1920;
    int height = 1080;
    int format = 0;  // image-format id, NV21 unless --format says otherwise
    std::string formatName = "NV21";
    int buffers = 6;
    int dumpEvery = 10;
    double jitterMs = 3;
    std::string out = "zorcam-demo";
    std::string log;  // --log: the library's lines go to this file too
};

/// One slice of a thread's time in the trace.
struct TraceEvent {
    const char* name;
    int64_t start;     // ns, monotonic
    int64_t duration;  // ns
    int64_t frame;     // frame number, -1 for none
};

/// One pipeline thread: its name, kernel thread id and what it did.
struct ThreadTrace {
    std::string name;
    int tid = 0;
    std::vector<TraceEvent> events;
};

/// A stage's per-frame latency (wall time) and CPU time, both ns.
struct StageTimes {
    std::string name;
    std::vector<double> wall;
    int64_t cpu = 0;
    int64_t frames = 0;
};

struct DumpRecord {
    uint32_t frame;
    std::string path;  // the file the dump service wrote
};

struct DemoResult {
    int64_t framesIn = 0;
    int64_t framesShown = 0;
    int64_t droppedAtSensor = 0;   // no free buffer when the frame was made
    int64_t droppedAtDisplay = 0;  // overtaken in the display queue
    int64_t fencesMade = 0;
    int64_t fencesMerged = 0;
    int descriptorsBefore = 0;
    int descriptorsAfter = 0;
    int64_t start = 0;                  // ns, when the first frame was due
    std::vector<int64_t> releases;      // ns, when each shown frame left the pacer
    std::vector<uint32_t> shownFrames;  // frame number of each release
    std::vector<StageTimes> stages;
    std::vector<DumpRecord> dumps;
    std::vector<ThreadTrace> threads;
};

/// What the report found in the dumps.
struct ReportSummary {
    int decoded = 0;                 // dumps turned back into pictures
    int idMatched = 0;               // of those, the stamp read back equal to the frame number
    std::vector<std::string> files;  // written, relative to the report directory
};

/// Frames that lead into pacing and are left out of the interval statistics.
constexpr int kDemoWarmup = 10;

/// |interval - frame interval| in ms for each pair of consecutive releases after the warm-up.
std::vector<double> intervalErrorsMs(const DemoResult& r, double fps);

/// Shown frames a second once paced: releases after the warm-up over their span; 0 without two.
double fpsAchieved(const DemoResult& r);

/// Writes DIR/index.html, its pictures and charts, and DIR/trace.json. False with a message.
bool writeDemoReport(const DemoOptions& o, const DemoResult& r, ReportSummary* summary,
                     std::string* error);

}  // namespace zorcam_util
