// The log reader of `zorcam-util report`: captures read as a stream, one line at a time.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Clock.h"
#include "LogLine.h"
#include "LogReport.h"

namespace zorcam_util {

namespace {

constexpr size_t kChunk = 1 << 20;
constexpr size_t kMaxLine = 64 * 1024;       // longer lines are skipped, not kept
constexpr uint64_t kProgressFrom = 4 << 20;  // captures above this show progress
constexpr size_t kFirstUnreadable = 5;       // line numbers kept of the unreadable lines
constexpr size_t kMaxInstants = 20000;       // warnings drawn into the trace

// A capture opened for reading: a plain file or standard input, or a gzip file through zlib.
class Capture {
public:
    bool open(const std::string& path, std::string* error) {
        mPath = path;
        if (path == "-") {
            mFd = dup(0);
        } else {
            mFd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        }
        if (mFd < 0) {
            *error = "cannot read " + path + ": " + strerror(errno);
            return false;
        }
        struct stat st;
        if (fstat(mFd, &st) == 0 && S_ISREG(st.st_mode)) mSize = static_cast<uint64_t>(st.st_size);
        if (fstat(mFd, &st) == 0 && S_ISDIR(st.st_mode)) {
            *error = path + " is a folder";
            return false;
        }
        if (path.size() > 3 && path.compare(path.size() - 3, 3, ".gz") == 0) {
            const int fd = dup(mFd);
            mGz = fd < 0 ? nullptr : gzdopen(fd, "rb");
            if (mGz == nullptr) {
                if (fd >= 0) close(fd);
                *error = "cannot read " + path + " as gzip";
                return false;
            }
        }
        return true;
    }
    ~Capture() {
        if (mGz != nullptr) gzclose(mGz);
        if (mFd >= 0) close(mFd);
    }
    // Bytes read into buf, 0 at the end, -1 on an error.
    long read(char* buf, size_t n) {
        if (mGz != nullptr) {
            const int got = gzread(mGz, buf, static_cast<unsigned>(n));
            int code = Z_OK;
            gzerror(mGz, &code);
            return got < 0 || (got == 0 && code != Z_OK && code != Z_BUF_ERROR) ? -1 : got;
        }
        for (;;) {
            const ssize_t got = ::read(mFd, buf, n);
            if (got >= 0 || errno != EINTR) return got;
        }
    }
    // How far through the file: compressed bytes for gzip.
    uint64_t position() const {
        if (mGz != nullptr) return static_cast<uint64_t>(gzoffset(mGz));
        const off_t at = lseek(mFd, 0, SEEK_CUR);
        return at < 0 ? 0 : static_cast<uint64_t>(at);
    }
    uint64_t size() const { return mSize; }

private:
    std::string mPath;
    int mFd = -1;
    gzFile mGz = nullptr;
    uint64_t mSize = 0;
};

}  // namespace

void LogReader::line(std::string_view text, uint64_t lineNo) {
    ++mResult.lines;
    if (!mayBeLibraryLine(text)) return;
    LogEntry entry;
    if (!parseLogLine(text, &entry)) return;
    if (mOptions.pid >= 0 && entry.pid != mOptions.pid) return;
    if (entry.timeNs >= 0 && (entry.timeNs < mOptions.since || entry.timeNs > mOptions.until))
        return;
    LibraryEvent ev;
    const LibraryLine read = readLibraryLine(entry, &ev);
    if (read == LibraryLine::kNotLibrary) return;
    ++mResult.libraryLines;
    if (read == LibraryLine::kUnreadable) {
        if (mResult.unreadable.size() < kFirstUnreadable)
            mResult.unreadable.push_back(mSource + ":" + std::to_string(lineNo));
        ++mResult.unreadableCount;
        return;
    }
    if (entry.timeNs >= 0) {
        if (entry.timeNs < mLastTime) ++mResult.outOfOrder;
        mLastTime = std::max(mLastTime, entry.timeNs);
        mResult.resolutionNs = std::max(mResult.resolutionNs, entry.resolutionNs);
        mResult.firstNs = std::min(mResult.firstNs, entry.timeNs);
    }
    const Thread who{entry.pid, entry.tid};
    mResult.threads.insert(who);
    if (ev.kind != LibraryEvent::kOther && ev.kind != LibraryEvent::kCameraProfile &&
        !mOptions.name.empty() && ev.name != mOptions.name) {
        return;
    }
    const int64_t at = entry.timeNs;
    const int64_t* v = ev.values;
    switch (ev.kind) {
        case LibraryEvent::kPaced:
        case LibraryEvent::kPacedInReset: {
            // Pacing lines come in runs of one stream: the last one is looked up first.
            if (mLastStream == nullptr || !(mLastStreamKey.first == who) ||
                mLastStreamKey.second != ev.name) {
                mLastStreamKey = {who, std::string(ev.name)};
                mLastStream = &mResult.streams[mLastStreamKey];
            }
            Stream& s = *mLastStream;
            PacedFrame f;
            f.at = at;
            f.ct = v[0];
            f.cft = v[1];
            f.delay = v[2];
            f.target = v[3];
            if (ev.kind == LibraryEvent::kPaced) {
                f.reset = v[4];
                f.adjustMax = v[5];
                f.adjustMin = v[6];
                f.interval = v[7];
                f.sleepUs = v[10];
            } else {
                f.interval = v[4];
                f.inReset = true;
            }
            s.frames.push_back(f);
            break;
        }
        case LibraryEvent::kAdjustStart:
        case LibraryEvent::kResetStart: {
            Stream& s = mResult.streams[{who, std::string(ev.name)}];
            auto& starts = ev.kind == LibraryEvent::kAdjustStart ? s.adjustStarts : s.resetStarts;
            // The pacing line of this frame follows: the episode starts at its frame.
            starts.push_back({at, s.frames.size()});
            break;
        }
        case LibraryEvent::kAdjustStop:
        case LibraryEvent::kResetStop:
            mResult.streams[{who, std::string(ev.name)}].stops++;
            break;
        case LibraryEvent::kMeasuring:
            mResult.streams[{who, std::string(ev.name)}].measuring++;
            break;
        case LibraryEvent::kFirstFrameDelay:
            mResult.streams[{who, std::string(ev.name)}].firstFrameDelayMs = v[0];
            break;
        case LibraryEvent::kFps:
            mResult.meters[{who, std::string(ev.name)}].push_back({at, v[0], v[1], ev.rate});
            break;
        case LibraryEvent::kCamProfile:
        case LibraryEvent::kCameraProfile: {
            const bool cam = ev.kind == LibraryEvent::kCamProfile;
            std::string name = cam ? std::string(ev.name)
                                   : std::string(entry.tag) + " " + std::string(ev.name);
            if (!mOptions.name.empty() && name != mOptions.name && ev.name != mOptions.name) return;
            Profile& p = mResult.profiles[{who, name}];
            const double stepNs = cam ? v[2] * 1e6 : v[2] * 1e3;
            // Notes often carry a frame number; the checkpoint is the note without its numbers.
            std::string checkpoint;
            for (size_t i = 0; i < ev.note.size(); ++i) {
                const bool digit = ev.note[i] >= '0' && ev.note[i] <= '9';
                if (!digit)
                    checkpoint += ev.note[i];
                else if (i == 0 || ev.note[i - 1] < '0' || ev.note[i - 1] > '9')
                    checkpoint += '#';
            }
            p.checkpoints[checkpoint].push_back(stepNs);
            p.steps.push_back({at, stepNs, std::string(ev.note)});
            break;
        }
        case LibraryEvent::kOther:
            break;
    }
    if (entry.level == 'W' || entry.level == 'E' || entry.level == 'F' || entry.level == 'A') {
        Problems& p = mResult.problems[std::string(entry.tag)];
        (entry.level == 'W' ? p.warnings : p.errors)++;
        if (at >= 0) {
            p.first = std::min(p.first, at);
            p.last = std::max(p.last, at);
        }
        if (mResult.instants.size() < kMaxInstants) {
            const std::string said(entry.message.substr(0, 200));
            mResult.instants.push_back(
                    {who, at,
                     std::string(1, entry.level) + " " + std::string(entry.tag) + ": " + said});
        }
    }
}

namespace {

// Newlines in [p, end), eight bytes at a time: a byte of x ^ "\n\n..." is zero exactly where
// the text has a newline, and that test is exact for every byte of the word at once.
uint64_t countNewlines(const char* p, const char* end) {
    constexpr uint64_t kNewlines = 0x0a0a0a0a0a0a0a0a, kLow = 0x7f7f7f7f7f7f7f7f;
    uint64_t n = 0;
    for (; end - p >= 8; p += 8) {
        uint64_t word;
        memcpy(&word, p, 8);
        const uint64_t x = word ^ kNewlines;
        const uint64_t zero = ~(((x & kLow) + kLow) | x | kLow);  // 0x80 in each zero byte
        n += ((zero >> 7) * 0x0101010101010101) >> 56;
    }
    for (; p < end; ++p) n += *p == '\n';
    return n;
}

// The first `what` in [p, end), or end: memchr for its byte at `anchor`, one that is rare in
// log text ('Z' of "ZorCam/", '>' of "-->now: "), then a compare around it. Faster than memmem,
// which stops at every '-' of every date.
const char* find(const char* p, const char* end, std::string_view what, size_t anchor) {
    for (const char* q = p + anchor; q < end;) {
        const void* at = memchr(q, what[anchor], static_cast<size_t>(end - q));
        if (at == nullptr) break;
        const char* start = static_cast<const char*>(at) - anchor;
        if (end - start >= static_cast<ptrdiff_t>(what.size()) &&
            memcmp(start, what.data(), what.size()) == 0) {
            return start;
        }
        q = static_cast<const char*>(at) + 1;
    }
    return end;
}

}  // namespace

void LogReader::lines(const char* p, const char* end, uint64_t* lineNo) {
    // The library's lines are found in the whole block at once: most lines of a capture are
    // other processes', and they are only counted, never looked at one by one.
    const char* tagAt = nullptr;
    const char* profileAt = nullptr;
    while (p < end) {
        if (tagAt == nullptr || tagAt < p) tagAt = find(p, end, "ZorCam/", 0);
        if (profileAt == nullptr || profileAt < p) profileAt = find(p, end, "-->now: ", 2);
        const char* hit = std::min(tagAt, profileAt);
        if (hit == end) {
            const uint64_t n = countNewlines(p, end);
            *lineNo += n;
            mResult.lines += n;
            return;
        }
        const void* before = memrchr(p, '\n', static_cast<size_t>(hit - p));
        const char* start = before != nullptr ? static_cast<const char*>(before) + 1 : p;
        const uint64_t n = countNewlines(p, start);
        *lineNo += n;
        mResult.lines += n;
        const char* stop = static_cast<const char*>(memchr(hit, '\n', end - hit));
        if (stop == nullptr) stop = end;  // the block ends with a newline; not reached
        line(std::string_view(start, stop - start), ++*lineNo);
        p = stop + 1;
    }
}

bool LogReader::read(const std::string& path, bool progress, std::string* error) {
    Capture capture;
    if (!capture.open(path, error)) return false;
    mSource = path == "-" ? "stdin" : path;
    mLastTime = INT64_MIN;
    const bool showProgress = progress && capture.size() > kProgressFrom;
    // A block read, after the unfinished line the previous one ended with.
    std::unique_ptr<char[]> buffer(new char[kChunk + kMaxLine]);
    char* const data = buffer.get();
    size_t kept = 0;
    bool skippingLong = false;  // within a line longer than kMaxLine: dropped
    uint64_t lineNo = 0;
    uint64_t total = 0;
    bool checkedText = false;
    int64_t lastShown = 0;
    for (;;) {
        const long got = capture.read(data + kept, kChunk);
        if (got < 0) {
            *error = "cannot read " + path;
            return false;
        }
        if (got == 0) break;
        if (!checkedText) {
            // A capture is text: a NUL among its first bytes means it is something else.
            checkedText = true;
            if (memchr(data, '\0', std::min<size_t>(got, 4096)) != nullptr) {
                *error = path + " is not text";
                mResult.binaryFiles++;
                return false;
            }
        }
        total += static_cast<uint64_t>(got);
        const size_t n = kept + static_cast<size_t>(got);
        const void* last = memrchr(data, '\n', n);
        if (last == nullptr) {
            kept = n;
        } else {
            const char* end = static_cast<const char*>(last) + 1;
            const char* p = data;
            if (skippingLong) {
                p = static_cast<const char*>(memchr(p, '\n', end - p)) + 1;
                ++lineNo;
                ++mResult.lines;
                skippingLong = false;
            }
            lines(p, end, &lineNo);
            kept = static_cast<size_t>(data + n - end);
            memmove(data, end, kept);
        }
        if (kept > kMaxLine) {
            skippingLong = true;
            kept = 0;
        }
        if (showProgress) {
            const int64_t at = now();
            if (at - lastShown > 250000000) {
                lastShown = at;
                fprintf(stderr,
                        "\rreport: %s: %" PRIu64 " of %" PRIu64 " MB, %" PRIu64 " library lines",
                        mSource.c_str(), capture.position() >> 20, capture.size() >> 20,
                        mResult.libraryLines);
            }
        }
    }
    if (kept > 0 && !skippingLong) line(std::string_view(data, kept), ++lineNo);
    if (showProgress)
        fprintf(stderr, "\rreport: %s: %" PRIu64 " MB read, %" PRIu64 " library lines\n",
                mSource.c_str(), total >> 20, mResult.libraryLines);
    mResult.bytes += total;
    return true;
}

}  // namespace zorcam_util
