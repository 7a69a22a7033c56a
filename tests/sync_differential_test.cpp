// The emulation of software timelines held to the kernel's sw_sync driver: the same seeded
// random sequences of operations run on timelines of both in one process, and every answer a
// caller can observe is compared. Where the driver cannot be opened (any machine but the kernel
// stage's, scripts/test-kernel.sh) there is nothing to compare with, and the test says so.
//
// ZORCAM_SYNC_DIFF_SEEDS and ZORCAM_SYNC_DIFF_STEPS change the number of sequences (100) and
// their length (100); ZORCAM_SYNC_DIFF_SEED replays one sequence.

#include <android/sw_sync.h>
#include <android/sync.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr const char* kDriver = "/sys/kernel/debug/sync/sw_sync";

long envNumber(const char* name, long fallback) {
    const char* text = getenv(name);
    return text != nullptr && *text != '\0' ? strtol(text, nullptr, 10) : fallback;
}

// The kernel names a fence after its driver and timeline, then its context (the kernel's own
// counter, which the emulation cannot know) and its value, cut at 31 bytes: contexts of other
// lengths cut the value differently, so only what comes before the context is compared.
std::string withoutContexts(const std::string& name, const std::string& comm) {
    for (const std::string& prefix : {"sw_sync-" + comm, std::string("dma_fence_array-unbound")})
        if (name.compare(0, prefix.size(), prefix) == 0) return prefix + "#";
    return name;
}

// One side of the comparison: the timelines and fences of one kind, addressed by the same
// indexes on both sides.
struct World {
    bool emulated;
    std::vector<int> timelines;          // -1 once closed
    std::vector<int> fences;             // -1 once closed
    std::map<size_t, uint64_t> signals;  // made fence -> its signal time, once seen

    int makeTimeline() {
        if (emulated) setenv("ZORCAM_SW_SYNC", "emulated", 1);
        else unsetenv("ZORCAM_SW_SYNC");
        const int fd = sw_sync_timeline_create();
        unsetenv("ZORCAM_SW_SYNC");
        return fd;
    }

    void closeAll() {
        for (int& fd : fences) if (fd >= 0) close(fd), fd = -1;
        for (int& fd : timelines) if (fd >= 0) close(fd), fd = -1;
    }
};

std::string errnoText(int ret) {
    return ret < 0 ? "-1 " + std::string(strerrorname_np(errno) ? strerrorname_np(errno) : "?")
                   : std::to_string(ret);
}

// Everything sync_file_info tells of `fd`, its name without fence contexts. A fence made on a
// timeline (`madeIndex` >= 0) leaves its signal time in the world, for the order check.
std::string describe(World& w, int fd, const std::string& comm, long madeIndex) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return "info " + errnoText(-1);
    std::string text = "name=" + withoutContexts(info->name, comm) +
                       " status=" + std::to_string(info->status) +
                       " n=" + std::to_string(info->num_fences);
    const struct sync_fence_info* records = sync_get_fence_info(info);
    for (uint32_t i = 0; i < info->num_fences; ++i) {
        const struct sync_fence_info& r = records[i];
        text += " [" + std::string(r.obj_name) + " " + r.driver_name + " " +
                std::to_string(r.status) + (r.timestamp_ns != 0 ? " t" : " -") + "]";
        if (madeIndex >= 0 && info->num_fences == 1 && r.timestamp_ns != 0)
            w.signals[static_cast<size_t>(madeIndex)] = r.timestamp_ns;
    }
    sync_file_info_free(info);
    return text;
}

struct Difference {
    std::string where, kernel, emulation;
};

// Runs one seeded sequence on both worlds; the first answer that differs ends it.
bool runSequence(uint32_t seed, long steps, const std::string& comm, Difference* diff) {
    World worlds[2] = {{false, {}, {}, {}}, {true, {}, {}, {}}};
    std::vector<uint32_t> values;  // each timeline's counter, the same on both sides
    std::vector<long> madeIndex;   // per fence: its index among made fences, or -1 (merge, dup)
    size_t made = 0;
    std::mt19937 rng(seed);
    auto pick = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
    auto liveOf = [](const std::vector<int>& fds) {
        std::vector<size_t> live;
        for (size_t i = 0; i < fds.size(); ++i) if (fds[i] >= 0) live.push_back(i);
        return live;
    };

    bool same = true;
    for (long step = 0; step < steps && same; ++step) {
        const std::vector<size_t> timelines = liveOf(worlds[0].timelines);
        const std::vector<size_t> fences = liveOf(worlds[0].fences);
        std::string op, answers[2];
        // Fences and merges come twice as often as the rest, so that merged fences of several
        // pending points meet closed timelines and advances.
        static const unsigned kKinds[] = {0, 1, 1, 2, 3, 3, 4, 5, 6, 7, 8, 9};
        unsigned kind = kKinds[pick(sizeof(kKinds) / sizeof(kKinds[0]))];
        if (timelines.empty()) kind = 0;
        else if (kind == 0 && timelines.size() >= 4) kind = 2;
        else if (kind >= 3 && fences.empty()) kind = 1;
        switch (kind) {
            case 0: {
                op = "make timeline";
                for (int k = 0; k < 2; ++k) {
                    const int fd = worlds[k].makeTimeline();
                    worlds[k].timelines.push_back(fd);
                    answers[k] = fd >= 0 ? "ok" : errnoText(fd);
                }
                values.push_back(0);
                break;
            }
            case 1: {
                const size_t t = timelines[pick(timelines.size())];
                const uint32_t value = pick(8) == 0 ? static_cast<uint32_t>(rng())
                                                    : values[t] + static_cast<uint32_t>(pick(10)) - 2;
                op = "fence on timeline " + std::to_string(t) + " at " + std::to_string(value);
                for (int k = 0; k < 2; ++k) {
                    const int fd = sw_sync_fence_create(worlds[k].timelines[t], "fence", value);
                    worlds[k].fences.push_back(fd);
                    answers[k] = fd >= 0 ? "ok" : errnoText(fd);
                }
                madeIndex.push_back(static_cast<long>(made++));
                break;
            }
            case 2: {
                const size_t t = timelines[pick(timelines.size())];
                const uint32_t count = pick(20) == 0 ? 1000u : static_cast<uint32_t>(pick(3));
                op = "advance timeline " + std::to_string(t) + " by " + std::to_string(count);
                for (int k = 0; k < 2; ++k)
                    answers[k] = errnoText(sw_sync_timeline_inc(worlds[k].timelines[t], count));
                values[t] += count;
                break;
            }
            case 3: {
                const size_t a = fences[pick(fences.size())], b = fences[pick(fences.size())];
                const std::string name = pick(5) == 0 ? "" : "merge" + std::to_string(step);
                op = "merge " + std::to_string(a) + " and " + std::to_string(b) + " as '" +
                     name + "'";
                for (int k = 0; k < 2; ++k) {
                    const int fd = sync_merge(name.c_str(), worlds[k].fences[a],
                                              worlds[k].fences[b]);
                    worlds[k].fences.push_back(fd);
                    answers[k] = fd >= 0 ? describe(worlds[k], fd, comm, -1) : errnoText(fd);
                }
                madeIndex.push_back(-1);
                break;
            }
            case 4: {
                const size_t f = fences[pick(fences.size())];
                op = "dup fence " + std::to_string(f);
                for (int k = 0; k < 2; ++k) {
                    const int fd = fcntl(worlds[k].fences[f], F_DUPFD_CLOEXEC, 0);
                    worlds[k].fences.push_back(fd);
                    answers[k] = fd >= 0 ? "ok" : errnoText(fd);
                }
                madeIndex.push_back(madeIndex[f]);
                break;
            }
            case 5: {
                const size_t f = fences[pick(fences.size())];
                op = "close fence " + std::to_string(f);
                for (World& w : worlds) close(w.fences[f]), w.fences[f] = -1;
                break;
            }
            case 6: {
                const size_t t = timelines[pick(timelines.size())];
                op = "close timeline " + std::to_string(t);
                for (World& w : worlds) close(w.timelines[t]), w.timelines[t] = -1;
                // The emulation signals the closed timeline's points at the next libsync call
                // of the process; the kernel at once. Make that call before anything is seen.
                sync_file_info_free(sync_file_info(-1));
                break;
            }
            case 7: {
                const size_t f = fences[pick(fences.size())];
                op = "wait 0 on fence " + std::to_string(f);
                for (int k = 0; k < 2; ++k) {
                    errno = 0;
                    answers[k] = errnoText(sync_wait(worlds[k].fences[f], 0));
                }
                break;
            }
            case 8: {
                const size_t f = fences[pick(fences.size())];
                op = "information of fence " + std::to_string(f);
                for (int k = 0; k < 2; ++k)
                    answers[k] = describe(worlds[k], worlds[k].fences[f], comm, madeIndex[f]);
                break;
            }
            default: {
                const size_t f = fences[pick(fences.size())];
                op = "poll fence " + std::to_string(f);
                for (int k = 0; k < 2; ++k) {
                    struct pollfd pfd = {worlds[k].fences[f], POLLIN, 0};
                    const int ret = poll(&pfd, 1, 0);
                    answers[k] = std::to_string(ret) + " revents " + std::to_string(pfd.revents);
                }
                break;
            }
        }
        same = answers[0] == answers[1];
        if (!same) {
            *diff = {"seed " + std::to_string(seed) + " step " + std::to_string(step) + ": " + op,
                     answers[0], answers[1]};
        }
    }

    // Signal times: wherever both sides tell two fences apart, they tell them in the same
    // order (the emulation gives the points one advance signals one time).
    if (same) {
        const auto& kt = worlds[0].signals;
        const auto& et = worlds[1].signals;
        for (auto a = kt.begin(); a != kt.end() && same; ++a) {
            for (auto b = std::next(a); b != kt.end() && same; ++b) {
                auto ea = et.find(a->first), eb = et.find(b->first);
                if (ea == et.end() || eb == et.end()) continue;
                const bool kernelBefore = a->second < b->second, kernelAfter = a->second > b->second;
                if ((kernelBefore && ea->second > eb->second) ||
                    (kernelAfter && ea->second < eb->second)) {
                    same = false;
                    *diff = {"seed " + std::to_string(seed) + ": order of signal times of fences " +
                                     std::to_string(a->first) + " and " + std::to_string(b->first),
                             kernelBefore ? "first before second" : "second before first",
                             "the other way round"};
                }
            }
        }
    }
    for (World& w : worlds) w.closeAll();
    return same;
}

TEST(SyncDifferentialTest, EmulationAnswersAsTheKernelDriverDoes) {
    const int driver = open(kDriver, O_RDWR | O_CLOEXEC);
    const bool onKernelStage = getenv("ZORCAM_KERNEL_STAGE") != nullptr;
    if (driver < 0) {
        ASSERT_FALSE(onKernelStage) << "the kernel stage's machine has no " << kDriver;
        GTEST_SKIP() << "no sw_sync driver here (" << kDriver << "): the emulation is compared "
                     << "with the kernel's on the kernel stage (scripts/test-kernel.sh)";
    }
    close(driver);
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);

    const long seeds = envNumber("ZORCAM_SYNC_DIFF_SEEDS", 100);
    const long steps = envNumber("ZORCAM_SYNC_DIFF_STEPS", 100);
    const long only = envNumber("ZORCAM_SYNC_DIFF_SEED", -1);
    std::vector<Difference> diffs;
    long run = 0;
    for (long seed = only >= 0 ? only : 1; seed <= (only >= 0 ? only : seeds); ++seed, ++run) {
        Difference d;
        if (!runSequence(static_cast<uint32_t>(seed), steps, comm, &d)) diffs.push_back(d);
    }
    std::cout << run << " sequences of " << steps << " operations, " << diffs.size()
              << " with a difference\n";
    for (const Difference& d : diffs)
        ADD_FAILURE() << d.where << "\n  kernel:    " << d.kernel << "\n  emulation: "
                      << d.emulation;
}

}  // namespace
