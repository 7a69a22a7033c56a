// Drives the host libsync and its software timelines (the in-process emulation) with a random
// sequence of operations (make a timeline, make a fence, advance, merge, dup, close, ask for
// the information, wait with 0) and checks every answer against a small model:
// - a point signals exactly when its timeline reaches it, however far one advance goes;
// - a fence signals when its last point does; a merge holds the points of both fences that are
//   still pending, by timeline in the order they were made and the latest of each, or, with
//   none pending, one signalled record of the kernel's stub fence;
// - the information lists one record per point, in order, with its status and a time once
//   signalled; the fence's status is that of the first record not signalled cleanly; a fence
//   made on a timeline is named as the kernel names it, after the driver and the timeline;
// - closing a timeline signals its pending points with an error (-ENOENT) at the next libsync
//   call or wait, and the wait then ends at once;
// - once the input closes everything, the process holds no descriptor more than before.

#include <android/sw_sync.h>
#include <android/sync.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what, long a = 0, long b = 0) {
    fprintf(stderr, "sync_fuzz: %s (%ld, %ld)\n", what, a, b);
    abort();
}

// The process's sockets and pipes that close on exec: every emulated timeline and fence is a
// pipe, made close-on-exec. (libFuzzer's own
// files come and go between inputs, and its symbolizer's pipes stay open once started, so all
// descriptors would not do.) The listing stays open and is read again from the start; fstat
// tells the kind without the path walk a readlink of each entry would cost.
// With `show`, each one counted is listed on stderr, for a failure report.
int emulatedDescriptorCount(bool show = false) {
    static DIR* const sDir = opendir("/proc/self/fd");
    if (sDir == nullptr) fail("cannot list descriptors", errno);
    rewinddir(sDir);
    int n = 0;
    while (const dirent* e = readdir(sDir)) {
        struct stat st {};
        const int fd = atoi(e->d_name);
        if (e->d_name[0] != '.' && fstat(fd, &st) == 0 &&
            (S_ISSOCK(st.st_mode) || S_ISFIFO(st.st_mode)) && (fcntl(fd, F_GETFD) & FD_CLOEXEC)) {
            ++n;
            if (show)
                fprintf(stderr, "sync_fuzz: descriptor %d: %s%s inode %lu\n", fd,
                        S_ISSOCK(st.st_mode) ? "socket" : "pipe",
                        (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY ? " write end" : "",
                        static_cast<unsigned long>(st.st_ino));
        }
    }
    return n;
}

// Which descriptors below `range` are open, in one system call: poll reports POLLNVAL for a
// closed one. An input holds at most about a hundred descriptors at once.
constexpr int kDescriptorRange = 256;
std::bitset<kDescriptorRange> openDescriptors(int range = kDescriptorRange) {
    static pollfd sFds[kDescriptorRange];
    for (int i = 0; i < range; ++i) sFds[i] = {i, 0, 0};
    if (poll(sFds, static_cast<nfds_t>(range), 0) < 0) fail("cannot poll descriptors", errno);
    std::bitset<kDescriptorRange> open;
    for (int i = 0; i < range; ++i) open[i] = !(sFds[i].revents & POLLNVAL);
    return open;
}

// Wrap-around order of timeline values, as sync points compare.
int32_t ahead(uint32_t point, uint32_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(uint64_t{point} + 0x100000000u - value));
}

struct Timeline {
    int fd;  // -1 once closed
    uint32_t value;
};

constexpr size_t kStub = SIZE_MAX;  // the timeline of the kernel's stub fence's one point

struct Point {
    size_t timeline;
    uint32_t value;
    int32_t status;  // 0 pending, 1 signalled, -ENOENT when its timeline went first
};

// One sync file; every descriptor in `fds` is the same file.
struct Fence {
    std::vector<Point> points;
    std::string name;  // what the information names, at most 31 bytes; or how it begins
    std::vector<int> fds;
    bool namePrefix = false;
};

struct Model {
    std::vector<Timeline> timelines;
    std::vector<Fence> fences;
    std::vector<size_t> closedTimelines;  // closed, their pending points not yet errored

    // Every emulated libsync call first reaps what was closed.
    void reaped() {
        for (size_t t : closedTimelines)
            for (Fence& f : fences)
                for (Point& p : f.points)
                    if (p.timeline == t && p.status == 0) p.status = -ENOENT;
        closedTimelines.clear();
    }
};

bool pending(const Fence& f) {
    return std::any_of(f.points.begin(), f.points.end(),
                       [](const Point& p) { return p.status == 0; });
}

// The sync file's status: that of its first point not signalled cleanly, else signalled.
int32_t statusOf(const Fence& f) {
    for (const Point& p : f.points)
        if (p.status <= 0) return p.status;
    return 1;
}

// What a check found wrong, if anything, with two numbers for the report.
struct Wrong {
    const char* what = nullptr;
    long a = 0, b = 0;
};

Wrong infoWrong(const Fence& f, int fd) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return {"no information for a fence", fd, errno};
    const struct sync_fence_info* records = sync_get_fence_info(info);
    Wrong wrong;
    if (f.namePrefix ? std::string(info->name).rfind(f.name, 0) != 0 : f.name != info->name)
        wrong = {"name differs", fd, static_cast<long>(f.name.size())};
    else if (info->status != statusOf(f))
        wrong = {"status differs", info->status, statusOf(f)};
    else if (info->num_fences != f.points.size())
        wrong = {"not one record per point", info->num_fences, static_cast<long>(f.points.size())};
    for (uint32_t i = 0; i < info->num_fences && wrong.what == nullptr; ++i) {
        const struct sync_fence_info& r = records[i];
        const Point& p = f.points[i];
        if (strcmp(r.driver_name, p.timeline == kStub ? "stub" : "sw_sync") != 0)
            wrong = {"driver name", fd, i};
        else if ((r.status == 0) != (r.timestamp_ns == 0))
            wrong = {"time stamp and status disagree", fd, i};
        else if (r.status != p.status)
            wrong = {"record status", r.status, p.status};
    }
    sync_file_info_free(info);
    return wrong;
}

Wrong waitWrong(const Fence& f, int fd) {
    errno = 0;
    const int ret = sync_wait(fd, 0);
    if (pending(f) ? (ret != -1 || errno != ETIME) : ret != 0) return {"wait(0) wrong", fd, ret};
    return {};
}

// A process that reads this one's descriptors under /proc (a monitor, a debugger) holds each
// file for a moment. If it holds the last reference when a descriptor is closed here, the file
// goes when it lets go, as a kernel sync file would: a closed timeline errors its points, or a
// fence's own end is reaped, at a later libsync call than the model says. So a check that
// fails is made again a few times, each after a pause and a libsync call (which the model
// follows). One that passes only so counts as late, and late ones must stay rare: if they do
// not, the emulation is late.
uint64_t sInputs = 0, sLate = 0;

template <typename Check>
Wrong settled(Model& m, Check&& check) {
    Wrong wrong = check();
    if (wrong.what == nullptr) return wrong;
    for (int tries = 0; tries < 20 && wrong.what != nullptr; ++tries) {
        usleep(1000);
        sync_file_info_free(sync_file_info(-1));
        m.reaped();
        wrong = check();
    }
    if (wrong.what != nullptr) return wrong;
    fprintf(stderr, "sync_fuzz: a closed file went late\n");
    if (++sLate > 10 + sInputs / 10000)
        return {"closed files go late too often", static_cast<long>(sLate),
                static_cast<long>(sInputs)};
    return {};
}

void check(const Wrong& wrong) {
    if (wrong.what != nullptr) fail(wrong.what, wrong.a, wrong.b);
}

// What a merge of `a` and `b` holds: their pending points by timeline, the latest of each;
// with none pending, the stub's signalled point.
std::vector<Point> mergedPoints(const Fence& a, const Fence& b) {
    std::vector<Point> out;
    for (const Fence* f : {&a, &b})
        for (const Point& p : f->points)
            if (p.status == 0) out.push_back(p);
    std::stable_sort(out.begin(), out.end(), [](const Point& p, const Point& q) {
        return p.timeline != q.timeline ? p.timeline < q.timeline : ahead(p.value, q.value) > 0;
    });
    out.erase(std::unique(out.begin(), out.end(),
                          [](const Point& p, const Point& q) { return p.timeline == q.timeline; }),
              out.end());
    if (out.empty()) out.push_back({kStub, 0, 1});
    return out;
}

std::string shortName(const std::string& name) {
    return std::string(name.c_str()).substr(0, 31);
}

const uint32_t kEdges[] = {0, 1, 2, 3, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF, 0xFFFFFFFE};

uint32_t pickCount(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            return in.ConsumeIntegralInRange<uint32_t>(0, 4);
        case 1:
            return in.PickValueInArray(kEdges);
        default:
            return in.ConsumeIntegral<uint32_t>();
    }
}

// How the kernel begins the name of a fence made on a timeline of this thread's.
std::string sKernelName;

constexpr size_t kMaxTimelines = 6;
constexpr size_t kMaxFences = 24;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("ZORCAM_SW_SYNC", "emulated", 1);  // the kernel's driver is not what is tested here
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);
    sKernelName = std::string("sw_sync-") + comm;
    // The emulation's own descriptors, made with its first timeline, are there for good: make
    // them before the count the inputs are checked against.
    close(sw_sync_timeline_create());
    sync_file_info_free(sync_file_info(-1));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int sBaseline = emulatedDescriptorCount();
    static std::bitset<kDescriptorRange> sOpen = openDescriptors();
    ++sInputs;
    FuzzedDataProvider in(data, size);
    Model m;
    int made = 0;  // descriptors the input's calls can have made, at most
    const int ops = in.ConsumeIntegralInRange<int>(1, 48);
    for (int op = 0; op < ops && in.remaining_bytes() > 0; ++op) {
        const bool anyFence = !m.fences.empty(), anyTimeline = !m.timelines.empty();
        switch (in.ConsumeIntegralInRange<int>(0, 7)) {
            case 0: {  // make a timeline
                if (m.timelines.size() >= kMaxTimelines) break;
                const int fd = sw_sync_timeline_create();
                made += 2;
                if (fd < 0) fail("timeline not made", errno);
                m.reaped();
                m.timelines.push_back({fd, 0});
                break;
            }
            case 1: {  // make a fence, usually a little ahead of the timeline
                if (!anyTimeline || m.fences.size() >= kMaxFences) break;
                const size_t t = in.ConsumeIntegralInRange<size_t>(0, m.timelines.size() - 1);
                Timeline& tl = m.timelines[t];
                const uint32_t value = in.ConsumeBool() ? tl.value + pickCount(in) : pickCount(in);
                const std::string name = in.ConsumeRandomLengthString(40);
                const int fd = sw_sync_fence_create(tl.fd, name.c_str(), value);
                made += 2;
                m.reaped();
                if (tl.fd < 0) {
                    if (fd >= 0) fail("fence made on a closed timeline", fd);
                    break;
                }
                if (fd < 0) fail("fence not made", errno);
                const int32_t status = ahead(value, tl.value) > 0 ? 0 : 1;
                m.fences.push_back({{{t, value, status}}, sKernelName, {fd}, true});
                break;
            }
            case 2: {  // advance
                if (!anyTimeline) break;
                const size_t t = in.ConsumeIntegralInRange<size_t>(0, m.timelines.size() - 1);
                Timeline& tl = m.timelines[t];
                const uint32_t count = pickCount(in);
                const int ret = sw_sync_timeline_inc(tl.fd, count);
                m.reaped();
                if (tl.fd < 0) break;
                if (ret != 0) fail("advance failed", errno);
                // A pending point is 1 to 2^31 - 1 ahead; it signals when the count gets there.
                for (Fence& f : m.fences)
                    for (Point& p : f.points)
                        if (p.timeline == t && p.status == 0 &&
                            static_cast<uint32_t>(ahead(p.value, tl.value)) <= count)
                            p.status = 1;
                tl.value = static_cast<uint32_t>(uint64_t{tl.value} + count);
                break;
            }
            case 3: {  // merge
                if (!anyFence || m.fences.size() >= kMaxFences) break;
                const size_t a = in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1);
                const size_t b = in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1);
                const std::string name = in.ConsumeRandomLengthString(40);
                const int fd = sync_merge(name.c_str(), m.fences[a].fds[0], m.fences[b].fds[0]);
                made += 2;
                m.reaped();
                if (fd < 0) fail("merge failed", errno);
                // Without a name the kernel names the merge after the fence it is.
                const std::string kept = shortName(name);
                m.fences.push_back(
                        {mergedPoints(m.fences[a], m.fences[b]), kept, {fd}, kept.empty()});
                break;
            }
            case 4: {  // dup
                if (!anyFence) break;
                Fence& f = m.fences[in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1)];
                const int fd = dup(f.fds[0]);
                made += 1;
                if (fd < 0) fail("dup failed", errno);
                f.fds.push_back(fd);
                break;
            }
            case 5: {  // close a descriptor: of a fence, or a timeline
                if (anyFence && in.ConsumeBool()) {
                    const size_t i = in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1);
                    Fence& f = m.fences[i];
                    const size_t j = in.ConsumeIntegralInRange<size_t>(0, f.fds.size() - 1);
                    close(f.fds[j]);
                    f.fds.erase(f.fds.begin() + static_cast<std::ptrdiff_t>(j));
                    if (f.fds.empty())
                        m.fences.erase(m.fences.begin() + static_cast<std::ptrdiff_t>(i));
                } else if (anyTimeline) {
                    const size_t t = in.ConsumeIntegralInRange<size_t>(0, m.timelines.size() - 1);
                    if (m.timelines[t].fd < 0) break;
                    close(m.timelines[t].fd);
                    m.timelines[t].fd = -1;
                    m.closedTimelines.push_back(t);
                }
                break;
            }
            case 6: {  // information
                if (!anyFence) break;
                const Fence& f =
                        m.fences[in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1)];
                const int fd = f.fds[in.ConsumeIntegralInRange<size_t>(0, f.fds.size() - 1)];
                m.reaped();  // sync_file_info reaps before it reads
                check(settled(m, [&] { return infoWrong(f, fd); }));
                break;
            }
            default: {  // wait with 0, which reaps when anything closed is waiting
                if (!anyFence) break;
                const Fence& f =
                        m.fences[in.ConsumeIntegralInRange<size_t>(0, m.fences.size() - 1)];
                const int fd = f.fds[in.ConsumeIntegralInRange<size_t>(0, f.fds.size() - 1)];
                m.reaped();
                check(settled(m, [&] { return waitWrong(f, fd); }));
            }
        }
    }
    // Everything the input made, closed: after the next libsync call nothing may be left.
    for (Fence& f : m.fences)
        for (int fd : f.fds) close(fd);
    for (Timeline& t : m.timelines)
        if (t.fd >= 0) close(t.fd);
    sync_file_info_free(sync_file_info(-1));
    // A new descriptor takes the lowest free number, so every descriptor made during the input
    // lies below the count open before it plus the count made. The same of those open as when
    // the count was last right: nothing was left. Otherwise count (libFuzzer may have opened or
    // closed files of its own since).
    const int range = std::min<int>(kDescriptorRange, static_cast<int>(sOpen.count()) + made);
    const std::bitset<kDescriptorRange> below = ~std::bitset<kDescriptorRange>() >>
                                                (kDescriptorRange - range);
    if ((openDescriptors(range) & below) != (sOpen & below)) {
        const Wrong wrong = settled(m, [] {
            const int left = emulatedDescriptorCount();
            return left == sBaseline ? Wrong{}
                                     : Wrong{"descriptors outlive their owners", left, sBaseline};
        });
        if (wrong.what != nullptr) emulatedDescriptorCount(true);
        check(wrong);
        sOpen = openDescriptors();
    }
    return 0;
}
