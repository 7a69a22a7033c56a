// zorcam-util pace: measures how evenly frames leave a display pacer. A producer thread makes
// frames on the monotonic clock at the given rate, each delivered after a random jitter; the
// same trace is released three ways side by side (unpaced, a plain pacer that sleeps until the
// next frame slot, and FrameController), each on its own consumer thread, and the release
// intervals, display delays and sleeping time of the three are compared.

#include <android/log.h>
#include <cutils/properties.h>
#include <sys/stat.h>
#include <zorcam/utils/std/FrameController.h>
#include <zorcam/utils/std/Log.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Clock.h"
#include "Command.h"
#include "Stats.h"
#include "Svg.h"

namespace zorcam_util {

namespace {

constexpr int64_t kMs = kNsPerMs;
// Frames left out of the statistics for every way alike: the controller measures the first
// five and holds one back before it paces.
constexpr int kWarmup = 10;
constexpr const char* kControllerTag = "ZorCam/FrameController";

struct Options {
    double fps = 30;
    int frames = 600;
    double jitterMs = 0;
    double latencyMs = 0;
    unsigned seed = 1;
    std::string outDir;
};

struct Frame {
    int64_t stamp;      // ns, the frame's time stamp
    int64_t deliverAt;  // ns, when it reaches the consumer
};

struct Release {
    int64_t stamp;
    int64_t at;     // ns, when the pacer let it go
    int64_t slept;  // ns spent inside the pacer
};

// Transitions of the controllers, counted from their log lines.
std::atomic<int> sAdjustEntered{0};
std::atomic<int> sResetEntered{0};

void countingLogger(const __android_logger_data* data, const char* message) {
    if (data->tag != nullptr && strcmp(data->tag, kControllerTag) == 0) {
        if (strstr(message, "] start to adj frame delay") != nullptr) ++sAdjustEntered;
        if (strstr(message, "] start to reset frame delay") != nullptr) ++sResetEntered;
        return;
    }
    __android_log_stderr_logger(data, message);
}

// One way of releasing frames: a queue filled by the producer and a consumer thread that
// waits for each frame's delivery, passes it through its pacer and notes the release.
class Way {
public:
    Way(const char* name, std::function<void(int64_t stamp)> pacer)
        : mName(name), mPacer(std::move(pacer)) {}

    void push(const Frame& f) {
        std::lock_guard<std::mutex> lock(mLock);
        mQueue.push_back(f);
        mReady.notify_one();
    }

    void run(int frames) {
        mReleases.reserve(frames);
        for (int i = 0; i < frames; ++i) {
            Frame f;
            {
                std::unique_lock<std::mutex> lock(mLock);
                mReady.wait(lock, [this] { return !mQueue.empty(); });
                f = mQueue.front();
                mQueue.pop_front();
            }
            sleepUntil(f.deliverAt);
            const int64_t in = now();
            mPacer(f.stamp);
            const int64_t out = now();
            mReleases.push_back({f.stamp, out, out - in});
        }
    }

    const char* name() const { return mName; }
    const std::vector<Release>& releases() const { return mReleases; }

private:
    const char* mName;
    std::function<void(int64_t)> mPacer;
    std::mutex mLock;
    std::condition_variable mReady;
    std::deque<Frame> mQueue;
    std::vector<Release> mReleases;
};

// Sleeps until the next slot of a grid one frame interval wide, anchored at the first
// release; a frame that comes after its slot goes at once and moves the grid.
class SlotPacer {
public:
    explicit SlotPacer(int64_t interval) : mInterval(interval) {}

    void operator()(int64_t) {
        if (mNext == 0) {
            mNext = now() + mInterval;
            return;
        }
        const int64_t t = now();
        if (t < mNext) {
            sleepUntil(mNext);
            mNext += mInterval;
        } else {
            mNext = t + mInterval;
        }
    }

private:
    int64_t mInterval;
    int64_t mNext = 0;
};

struct Stats {
    double errMedian, errP99, errMax, shareOver2;
    double delayMedian, delayP99;
    double sleptMs, sleptPerFrameMs;
    std::vector<double> intervalsMs;
};

Stats measure(const std::vector<Release>& r, int64_t interval) {
    Stats s{};
    std::vector<double> err, delay;
    int over = 0;
    double slept = 0;
    for (size_t i = kWarmup; i < r.size(); ++i) {
        const int64_t iv = r[i].at - r[i - 1].at;
        s.intervalsMs.push_back(iv / 1e6);
        const double e = std::fabs(static_cast<double>(iv - interval)) / 1e6;
        err.push_back(e);
        if (e > 2.0) ++over;
        delay.push_back((r[i].at - r[i].stamp) / 1e6);
        slept += r[i].slept / 1e6;
    }
    std::sort(err.begin(), err.end());
    std::sort(delay.begin(), delay.end());
    s.errMedian = percentile(err, 50);
    s.errP99 = percentile(err, 99);
    s.errMax = err.empty() ? NAN : err.back();
    s.shareOver2 = err.empty() ? NAN : 100.0 * over / err.size();
    s.delayMedian = percentile(delay, 50);
    s.delayP99 = percentile(delay, 99);
    s.sleptMs = slept;
    s.sleptPerFrameMs = err.empty() ? NAN : slept / err.size();
    return s;
}

bool writeSvg(const std::string& path, const std::vector<const char*>& names,
              const std::vector<Stats>& stats, double intervalMs) {
    // Histogram of release intervals, one panel per way: 0.25 ms bins over +-8 ms around the
    // frame interval.
    std::ofstream out(path);
    if (!out) return false;
    svgBegin(out, static_cast<int>(names.size()));
    for (size_t w = 0; w < names.size(); ++w) {
        char title[160];
        snprintf(title, sizeof(title),
                 "%s: release intervals (ms), p99 |error| %.3f ms, max %.3f ms", names[w],
                 stats[w].errP99, stats[w].errMax);
        svgHistogram(out, static_cast<int>(w), title, stats[w].intervalsMs, intervalMs, 0.25, 8);
    }
    svgEnd(out);
    return static_cast<bool>(out);
}

std::string loadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string a, b, c;
    if (!(in >> a >> b >> c)) return "unknown";
    return a + " " + b + " " + c;
}

int run(const Options& o) {
    if (!o.outDir.empty()) {
        struct stat st;
        if (stat(o.outDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            fprintf(stderr, "zorcam-util pace: not a directory: %s\n", o.outDir.c_str());
            return 1;
        }
    }
    const int64_t interval = static_cast<int64_t>(std::llround(1e9 / o.fps));

    // The controller's transitions are info lines from log level 2 on; count them instead of
    // printing every frame's line.
    property_set("debug.camera.fctrl.loglevel", "2");
    __android_log_set_logger(countingLogger);
    const bool counted = zorcam_testLog(kControllerTag, 'I') != 0;
    android::sp<NSCam::Utils::FrameController> controller =
            new NSCam::Utils::FrameController(android::String8("pace"));

    SlotPacer slot(interval);
    std::vector<Way*> ways;
    Way unpaced("unpaced", [](int64_t) {});
    Way slotted("slot pacer", [&slot](int64_t stamp) { slot(stamp); });
    Way paced("FrameController",
              [&controller](int64_t stamp) { controller->bufferControl(stamp); });
    ways = {&unpaced, &slotted, &paced};

    const std::string loadBefore = loadAverage();
    std::vector<std::thread> consumers;
    for (Way* w : ways) consumers.emplace_back([w, &o] { w->run(o.frames); });

    std::mt19937 rng(o.seed);
    std::uniform_int_distribution<int64_t> jitter(0, static_cast<int64_t>(o.jitterMs * kMs));
    const int64_t latency = static_cast<int64_t>(o.latencyMs * kMs);
    std::thread producer([&] {
        const int64_t t0 = now() + 50 * kMs;
        int64_t lastDelivery = 0;
        for (int i = 0; i < o.frames; ++i) {
            const int64_t stamp = t0 + i * interval;
            sleepUntil(stamp);
            // Frames are delivered in order: one cannot overtake the frame before it.
            lastDelivery = std::max(lastDelivery, stamp + latency + jitter(rng));
            for (Way* w : ways) w->push({stamp, lastDelivery});
        }
    });
    producer.join();
    for (auto& t : consumers) t.join();
    __android_log_set_logger(__android_log_stderr_logger);

    printf("pace: %.3f fps (frame interval %.3f ms), %d frames, delivery jitter 0-%.1f ms, "
           "latency %.1f ms, seed %u\n",
           o.fps, interval / 1e6, o.frames, o.jitterMs, o.latencyMs, o.seed);
    printf("load average before %s, after %s; statistics over frames %d..%d\n", loadBefore.c_str(),
           loadAverage().c_str(), kWarmup, o.frames - 1);
    printf("%-16s %28s %8s %20s %22s\n", "", "|interval error| ms", "", "display delay ms",
           "time asleep");
    printf("%-16s %9s %9s %9s %8s %10s %9s %12s %9s\n", "way", "median", "p99", "max", ">2 ms",
           "median", "p99", "total ms", "ms/frame");
    std::vector<Stats> stats;
    std::vector<const char*> names;
    for (Way* w : ways) {
        stats.push_back(measure(w->releases(), interval));
        names.push_back(w->name());
        const Stats& s = stats.back();
        printf("%-16s %9.3f %9.3f %9.3f %7.1f%% %10.3f %9.3f %12.1f %9.3f\n", w->name(),
               s.errMedian, s.errP99, s.errMax, s.shareOver2, s.delayMedian, s.delayP99, s.sleptMs,
               s.sleptPerFrameMs);
    }
    if (counted) {
        printf("FrameController: adjust mode entered %d times, reset mode entered %d times\n",
               sAdjustEntered.load(), sResetEntered.load());
    } else {
        printf("FrameController: mode changes not counted (camera log level below 2)\n");
    }

    if (!o.outDir.empty()) {
        const std::string path = o.outDir + "/pace_intervals.svg";
        if (!writeSvg(path, names, stats, interval / 1e6)) {
            fprintf(stderr, "zorcam-util pace: cannot write %s\n", path.c_str());
            return 1;
        }
        printf("histogram: %s\n", path.c_str());
    }
    return 0;
}

}  // namespace

static Command sCmd("pace", "Measure frame pacing: unpaced, a slot pacer and FrameController.",
                    [](CLI::App& command) -> Command::Runner {
                        auto o = std::make_shared<Options>();
                        command.add_option("--fps", o->fps, "frame rate (default 30)")
                                ->check(CLI::Range(0.001, 1000.0));
                        command.add_option("--frames", o->frames, "frames to pace")
                                ->check(CLI::Range(kWarmup + 2, 1000000));
                        command.add_option("--jitter-ms", o->jitterMs, "capture jitter, 0 to J ms")
                                ->check(CLI::Range(0.0, 1000.0));
                        command.add_option("--latency-ms", o->latencyMs, "pipeline latency in ms")
                                ->check(CLI::Range(0.0, 1000.0));
                        command.add_option("--seed", o->seed, "seed of the jitter");
                        command.add_option("--out", o->outDir, "folder for pace_intervals.svg");
                        return [o] { return run(*o); };
                    });

}  // namespace zorcam_util
