#pragma once

// What `zorcam-util report` gathers from a capture, and the reader that gathers it line by
// line. Memory grows with the library lines kept, not with the capture.

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorcam_util {

struct Thread {
    int pid = -1;
    int tid = -1;
    bool operator<(const Thread& o) const { return pid != o.pid ? pid < o.pid : tid < o.tid; }
    bool operator==(const Thread& o) const { return pid == o.pid && tid == o.tid; }
};

/// One frame of a frame controller's pacing line; ns unless named otherwise.
struct PacedFrame {
    int64_t at = -1;  // the capture's time stamp of the line
    int64_t ct = 0, cft = 0, delay = 0, target = 0, reset = 0, adjustMax = 0, adjustMin = 0;
    int64_t interval = 0, sleepUs = 0;
    bool inReset = false;
};

struct Stream {
    std::vector<PacedFrame> frames;
    size_t measuring = 0;  // frames before pacing started
    int64_t firstFrameDelayMs = -1;
    std::vector<std::pair<int64_t, size_t>> adjustStarts, resetStarts;  // capture time, frame
    size_t stops = 0;
};

struct MeterSample {
    int64_t at;
    int64_t count, elapsedNs;
    double rate;
};

struct ProfileStep {
    int64_t at;
    double stepNs;
    std::string note;
};

struct Profile {
    std::map<std::string, std::vector<double>> checkpoints;  // note: steps in ns
    std::vector<ProfileStep> steps;
};

struct Problems {
    uint64_t warnings = 0, errors = 0;
    int64_t first = INT64_MAX, last = INT64_MIN;
};

struct Instant {
    Thread who;
    int64_t at;
    std::string text;
};

using Named = std::pair<Thread, std::string>;

struct LogReport {
    uint64_t bytes = 0, lines = 0, libraryLines = 0, unreadableCount = 0, outOfOrder = 0;
    uint64_t binaryFiles = 0;
    std::vector<std::string> unreadable;  // "file:line" of the first few
    int64_t resolutionNs = 0;             // coarsest time stamp seen; 0: none
    int64_t firstNs = INT64_MAX;
    std::set<Thread> threads;
    std::map<Named, Stream> streams;
    std::map<Named, std::vector<MeterSample>> meters;
    std::map<Named, Profile> profiles;
    std::map<std::string, Problems> problems;  // by tag
    std::vector<Instant> instants;
};

struct LogReaderOptions {
    int pid = -1;  // -1: every process
    std::string name;
    int64_t since = INT64_MIN, until = INT64_MAX;
};

class LogReader {
public:
    explicit LogReader(LogReaderOptions options = {}) : mOptions(std::move(options)) {}
    /// Reads a capture ("-": standard input, *.gz through zlib); false with a message when it
    /// cannot be read or is not text. progress: a line on stderr for captures over 4 MB.
    bool read(const std::string& path, bool progress, std::string* error);
    /// Takes one line of a capture (without its newline).
    void line(std::string_view text, uint64_t lineNo);
    const LogReport& result() const { return mResult; }

private:
    // The complete lines of [p, end), which ends with a newline.
    void lines(const char* p, const char* end, uint64_t* lineNo);

    LogReaderOptions mOptions;
    LogReport mResult;
    std::string mSource = "input";
    Named mLastStreamKey;
    Stream* mLastStream = nullptr;  // std::map keeps its elements where they are
    int64_t mLastTime = INT64_MIN;
};

/// Writes index.html, the charts and trace.json into outDir (which exists).
bool writeLogReport(const LogReport& r, const std::string& outDir, const std::string& sources,
                    std::vector<std::string>* files, std::string* error);

/// The summary table on stdout.
void printLogSummary(const LogReport& r);

}  // namespace zorcam_util
