// Fences: wake-up latency of IFence::wait against a raw poll on an eventfd (same run, rounds
// interleaved), the cost of merge plus destruction, and of getSignalTime.

#include <zorcam/utils/std/Sync.h>

#include <android/sw_sync.h>
#include <android/sync.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

using android::sp;
using NSCam::Utils::Sync::IFence;

namespace {

int64_t nowNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}

struct Timeline {
    int fd = sw_sync_timeline_create();
    ~Timeline() { close(fd); }
    sp<IFence> fenceAt(unsigned value) const {
        return IFence::create(sw_sync_fence_create(fd, "bench", value));
    }
    void advance() const { sw_sync_timeline_inc(fd, 1); }
};

int64_t percentile(std::vector<int64_t> v, double p) {
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1))];
}

// One waiter thread; each round it blocks either in IFence::wait(-1) or in poll() on an
// eventfd, and the main thread wakes it after it has had time to block.
void BM_WakeUpLatency(benchmark::State& state) {
    constexpr int kRounds = 2000;
    Timeline timeline;
    const int efd = eventfd(0, EFD_CLOEXEC);
    std::vector<int64_t> fenceNs, rawNs;
    for (auto _ : state) {
        fenceNs.clear();
        rawNs.clear();
        std::atomic<int> armed{-1};
        std::atomic<int64_t> returned{0};
        sp<IFence> slot;
        std::thread waiter([&] {
            for (int r = 0; r < 2 * kRounds; ++r) {
                while (armed.load(std::memory_order_acquire) != r) {}
                if (r % 2 == 0) {
                    slot->wait(-1);
                } else {
                    struct pollfd pfd = {efd, POLLIN, 0};
                    poll(&pfd, 1, -1);
                }
                returned.store(nowNs(), std::memory_order_release);
                if (r % 2 != 0) {
                    uint64_t v;
                    if (read(efd, &v, sizeof(v)) != sizeof(v)) break;
                }
            }
        });
        unsigned value = 0;
        for (int r = 0; r < 2 * kRounds; ++r) {
            if (r % 2 == 0) slot = timeline.fenceAt(++value);
            returned.store(0);
            armed.store(r, std::memory_order_release);
            usleep(200);
            const int64_t start = nowNs();
            if (r % 2 == 0) {
                timeline.advance();
            } else {
                const uint64_t one = 1;
                if (write(efd, &one, sizeof(one)) != sizeof(one)) break;
            }
            int64_t end;
            while ((end = returned.load(std::memory_order_acquire)) == 0) {}
            (r % 2 == 0 ? fenceNs : rawNs).push_back(end - start);
        }
        waiter.join();
        slot.clear();
    }
    close(efd);
    const double fenceMedian = static_cast<double>(percentile(fenceNs, 0.5));
    const double rawMedian = static_cast<double>(percentile(rawNs, 0.5));
    state.counters["fence_median_ns"] = fenceMedian;
    state.counters["fence_p99_ns"] = static_cast<double>(percentile(fenceNs, 0.99));
    state.counters["raw_median_ns"] = rawMedian;
    state.counters["raw_p99_ns"] = static_cast<double>(percentile(rawNs, 0.99));
    state.counters["median_ratio"] = fenceMedian / rawMedian;
}
BENCHMARK(BM_WakeUpLatency)->Iterations(1)->Unit(benchmark::kMillisecond);

// Merge of two fences of two timelines, still pending or already signalled, and destruction.
void BM_MergeDestroy(benchmark::State& state) {
    Timeline t1, t2;
    sp<IFence> a = t1.fenceAt(1), b = t2.fenceAt(1);
    if (state.range(0) != 0) {
        t1.advance();
        t2.advance();
    }
    for (auto _ : state) {
        sp<IFence> m = IFence::merge("bench", a, b);
        benchmark::DoNotOptimize(m.get());
    }
}
BENCHMARK(BM_MergeDestroy)->ArgName("signalled")->Arg(0)->Arg(1);

// The same through libsync alone: what the wrapper adds.
void BM_RawSyncMergeClose(benchmark::State& state) {
    Timeline t1, t2;
    sp<IFence> a = t1.fenceAt(1), b = t2.fenceAt(1);
    if (state.range(0) != 0) {
        t1.advance();
        t2.advance();
    }
    for (auto _ : state) close(sync_merge("bench", a->getFd(), b->getFd()));
}
BENCHMARK(BM_RawSyncMergeClose)->ArgName("signalled")->Arg(0)->Arg(1);

void BM_GetSignalTime(benchmark::State& state) {
    Timeline t1, t2;
    sp<IFence> m = IFence::merge("bench", t1.fenceAt(1), t2.fenceAt(1));
    t1.advance();
    t2.advance();
    for (auto _ : state) benchmark::DoNotOptimize(m->getSignalTime());
}
BENCHMARK(BM_GetSignalTime);

void BM_RawSyncFileInfo(benchmark::State& state) {
    Timeline t1, t2;
    sp<IFence> m = IFence::merge("bench", t1.fenceAt(1), t2.fenceAt(1));
    t1.advance();
    t2.advance();
    for (auto _ : state) sync_file_info_free(sync_file_info(m->getFd()));
}
BENCHMARK(BM_RawSyncFileInfo);

}  // namespace

BENCHMARK_MAIN();
