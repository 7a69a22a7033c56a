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

std::string errnoText(int ret) {
    return ret < 0 ? "-1 " + std::string(strerrorname_np(errno) ? strerrorname_np(errno) : "?")
                   : std::to_string(ret);
}

// One side of the comparison: the timelines and fences of one kind, addressed by the same
// indexes on both sides (-1 once closed), and the signal time seen of each fence made on a
// timeline, by its index among those.
struct World {
    std::vector<int> timelines, fences;
    std::map<size_t, uint64_t> signals;

    ~World() { for (int fd : fences) close(fd); for (int fd : timelines) close(fd); }
};

std::vector<size_t> live(const std::vector<int>& fds) {
    std::vector<size_t> out;
    for (size_t i = 0; i < fds.size(); ++i) if (fds[i] >= 0) out.push_back(i);
    return out;
}

// Everything sync_file_info tells of `fd`. A fence made on a timeline (`made` >= 0) leaves its
// signal time in the world, for the order check.
std::string describe(World& w, int fd, const std::string& comm, long made) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return "info " + errnoText(-1);
    // The kernel names a fence after its driver and timeline, then its context (the kernel's
    // own counter, which the emulation cannot know) and its value, cut at 31 bytes: contexts of
    // other lengths cut the value differently, so only what comes before the context is compared.
    std::string name = info->name;
    for (const std::string& prefix : {"sw_sync-" + comm, std::string("dma_fence_array-unbound")})
        if (name.compare(0, prefix.size(), prefix) == 0) name = prefix + "#";
    std::string text = "name=" + name + " status=" + std::to_string(info->status) +
                       " n=" + std::to_string(info->num_fences);
    for (uint32_t i = 0; i < info->num_fences; ++i) {
        const struct sync_fence_info& r = sync_get_fence_info(info)[i];
        text += " [" + std::string(r.obj_name) + " " + r.driver_name + " " +
                std::to_string(r.status) + (r.timestamp_ns != 0 ? " t" : " -") + "]";
        if (made >= 0 && info->num_fences == 1 && r.timestamp_ns != 0)
            w.signals[static_cast<size_t>(made)] = r.timestamp_ns;
    }
    sync_file_info_free(info);
    return text;
}

const char* const kOps[] = {"make timeline", "fence",          "advance", "merge",       "dup",
                            "close fence",   "close timeline", "wait 0",  "information", "poll"};

// Runs one seeded sequence on both worlds (the kernel's first); the first answer that differs
// ends it. Returns what differs, or nothing.
std::string runSequence(uint32_t seed, long steps, const std::string& comm) {
    World worlds[2];
    std::vector<uint32_t> values;  // each timeline's counter, the same on both sides
    std::vector<long> madeIndex;   // per fence: its index among made fences, or -1 (merge, dup)
    long made = 0;
    std::mt19937 rng(seed);
    auto pick = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
    for (long step = 0; step < steps; ++step) {
        const auto timelines = live(worlds[0].timelines), fences = live(worlds[0].fences);
        // Fences and merges come twice as often as the rest, so that merged fences of several
        // pending points meet closed timelines and advances.
        static const unsigned kKinds[] = {0, 1, 1, 2, 3, 3, 4, 5, 6, 7, 8, 9};
        unsigned kind = kKinds[pick(sizeof(kKinds) / sizeof(kKinds[0]))];
        if (timelines.empty()) kind = 0;
        else if (kind == 0 && timelines.size() >= 4) kind = 2;
        else if (kind >= 3 && fences.empty()) kind = 1;
        // What the operation acts on, drawn in this order: a timeline or a fence (f, and b for
        // a merge), the fence's value or the advance's count (n), the merge's name.
        const size_t t = kind == 1 || kind == 2 || kind == 6 ? timelines[pick(timelines.size())]
                                                             : 0;
        const size_t f = kind >= 3 && kind != 6 ? fences[pick(fences.size())] : 0;
        const size_t b = kind == 3 ? fences[pick(fences.size())] : 0;
        const uint32_t n =
                kind == 1 ? (pick(8) == 0 ? uint32_t(rng()) : values[t] + uint32_t(pick(10)) - 2)
                : kind == 2 ? (pick(20) == 0 ? 1000u : uint32_t(pick(3))) : 0;
        const std::string name = kind == 3 && pick(5) != 0 ? "merge" + std::to_string(step) : "";
        std::string answers[2];
        for (int k = 0; k < 2; ++k) {
            World& w = worlds[k];
            std::string& answer = answers[k];
            int fd = -2;  // what the operation made, if anything
            switch (kind) {
                case 0:
                    k == 1 ? setenv("ZORCAM_SW_SYNC", "emulated", 1) : unsetenv("ZORCAM_SW_SYNC");
                    fd = sw_sync_timeline_create();
                    unsetenv("ZORCAM_SW_SYNC");
                    break;
                case 1: fd = sw_sync_fence_create(w.timelines[t], "fence", n); break;
                case 2: answer = errnoText(sw_sync_timeline_inc(w.timelines[t], n)); break;
                case 3: fd = sync_merge(name.c_str(), w.fences[f], w.fences[b]); break;
                case 4: fd = fcntl(w.fences[f], F_DUPFD_CLOEXEC, 0); break;
                case 5: close(w.fences[f]), w.fences[f] = -1; break;
                case 6:
                    close(w.timelines[t]), w.timelines[t] = -1;
                    // The emulation signals a closed timeline's points at the process's next
                    // libsync call, the kernel at once: make that call before anything is seen.
                    sync_file_info_free(sync_file_info(-1));
                    break;
                case 7: errno = 0, answer = errnoText(sync_wait(w.fences[f], 0)); break;
                case 8: answer = describe(w, w.fences[f], comm, madeIndex[f]); break;
                default:
                    struct pollfd pfd = {w.fences[f], POLLIN, 0};
                    answer = std::to_string(poll(&pfd, 1, 0));
                    answer += " revents " + std::to_string(pfd.revents);
            }
            if (fd == -2) continue;
            answer = fd < 0 ? errnoText(fd) : kind == 3 ? describe(w, fd, comm, -1) : "ok";
            (kind == 0 ? w.timelines : w.fences).push_back(fd);
        }
        if (answers[0] != answers[1])
            return "step " + std::to_string(step) + ": " + kOps[kind] + " (t " + std::to_string(t) +
                   ", f " + std::to_string(f) + ", b " + std::to_string(b) + ", n " +
                   std::to_string(n) + ", '" + name + "')\n  kernel:    " + answers[0] +
                   "\n  emulation: " + answers[1];
        if (kind == 0) values.push_back(0);
        if (kind == 1) madeIndex.push_back(made++);
        if (kind == 2) values[t] += n;
        if (kind == 3 || kind == 4) madeIndex.push_back(kind == 3 ? -1 : madeIndex[f]);
    }
    // Signal times: wherever both sides tell two fences apart, they tell them in the same
    // order (the emulation gives the points one advance signals one time).
    const std::map<size_t, uint64_t>&kt = worlds[0].signals, &et = worlds[1].signals;
    for (const auto& [i, ki] : kt)
        for (const auto& [j, kj] : kt)
            if (ki < kj && et.count(i) && et.count(j) && et.at(i) > et.at(j))
                return "fences " + std::to_string(i) + " and " + std::to_string(j) +
                       " signalled first to last on the kernel, last to first emulated";
    return "";
}

TEST(SyncDifferentialTest, EmulationAnswersAsTheKernelDriverDoes) {
    const int driver = open(kDriver, O_RDWR | O_CLOEXEC);
    if (driver < 0) {
        ASSERT_EQ(getenv("ZORCAM_KERNEL_STAGE"), nullptr) << "the kernel stage has no " << kDriver;
        GTEST_SKIP() << "no sw_sync driver here (" << kDriver << "): the emulation is compared "
                     << "with the kernel's on the kernel stage (scripts/test-kernel.sh)";
    }
    close(driver);
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);
    const long seeds = envNumber("ZORCAM_SYNC_DIFF_SEEDS", 100);
    const long steps = envNumber("ZORCAM_SYNC_DIFF_STEPS", 100);
    const long only = envNumber("ZORCAM_SYNC_DIFF_SEED", -1);
    long run = 0, differing = 0;
    for (long seed = only >= 0 ? only : 1; seed <= (only >= 0 ? only : seeds); ++seed, ++run) {
        const std::string difference = runSequence(static_cast<uint32_t>(seed), steps, comm);
        differing += !difference.empty();
        if (!difference.empty()) ADD_FAILURE() << "seed " << seed << ", " << difference;
    }
    std::cout << run << " sequences of " << steps << " operations, " << differing
              << " with a difference\n";
}

}  // namespace
