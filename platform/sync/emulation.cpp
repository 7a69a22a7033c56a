// In-process emulation of software sync timelines.
//
// How a fence is made. Every emulated fence is a pipe: the caller gets the read end, the
// emulation keeps the write end ("own end") and the fence's state (name, points). A pending
// fence's pipe is empty, so poll(POLLIN) blocks on it like on a kernel sync file. When the last
// point of the fence signals, the emulation writes one byte into its own end, which nobody
// reads: the caller's end turns readable for good. The own end stays open while the caller
// holds the fence, since a pipe without a writer would also report POLLHUP, which a kernel
// sync file never does. A timeline is a pipe as well, which never carries data. A dup() of a
// fence is the same pipe, so it is the same sync file.
//
// When the caller has closed every descriptor of a fence or of a timeline, the pipe's write
// end reports EPOLLERR. All own ends sit in one epoll set, and every emulated call first reaps
// what hung up: a fence nobody holds is dropped with its state, a closed timeline signals its
// pending points with -ENOENT as the kernel does. So the descriptors and memory of a fence are
// released at the next emulated call of the process after the caller closes it (the next
// timeline advance at the latest).
//
// Identity. The caller's descriptor is matched to its fence or timeline by its file's inode
// (st_dev, st_ino), which is unique among open files. A recorded inode can only belong to a
// file that is still open: its entry is dropped by the reap that follows the close, before any
// lookup under the same lock.
//
// One mutex guards all of it; every operation is short and never blocks while holding it.

#include "emulation.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace zorcam_sync {

namespace {

constexpr char kDriverName[] = "sw_sync";
constexpr char kStubName[] = "stub";  // the kernel's always-signalled fence

struct FileKey {
    dev_t dev;
    ino_t ino;
    bool operator==(const FileKey& o) const { return dev == o.dev && ino == o.ino; }
};

// Wrap-around arithmetic that is meant: hashing, and the timelines' 32-bit counters. Marked so
// for clang's integer checks (gcc has no such check).
#if defined(__clang__)
#define ZORCAM_WRAPS __attribute__((no_sanitize("unsigned-integer-overflow")))
#else
#define ZORCAM_WRAPS
#endif

ZORCAM_WRAPS uint64_t mix(uint64_t a, uint64_t b) {
    return a * 31 + b;
}

// How far `point` lies ahead of `value` on a timeline's counter, modulo 2^32.
ZORCAM_WRAPS uint32_t distance(uint32_t point, uint32_t value) {
    return point - value;
}

ZORCAM_WRAPS uint32_t advanced(uint32_t value, uint32_t count) {
    return value + count;
}

struct FileKeyHash {
    size_t operator()(const FileKey& k) const {
        return std::hash<uint64_t>()(mix(static_cast<uint64_t>(k.ino), k.dev));
    }
};

// One point of a fence: the record a sync_file_info caller sees, plus what merging needs.
struct StoredPoint {
    struct sync_fence_info info;
    uint64_t timelineId;
    uint32_t value;
    uint32_t pad;
};

struct Timeline;

// What an epoll event points at.
struct Watched {
    bool isTimeline;
    int ownFd = -1;
};

struct FenceEntry : Watched {
    FenceEntry() : Watched{false} {}
    FileKey key{};
    char name[32] = {};
    std::vector<StoredPoint> points;
    std::vector<Timeline*> timelines;  // per point; null once the point has signalled
    size_t remaining = 0;
};

struct PendingRef {
    FenceEntry* fence;
    size_t index;
};

struct Timeline : Watched {
    Timeline() : Watched{true} {}
    FileKey key{};
    uint64_t id = 0;
    uint32_t value = 0;
    char name[32] = {};
    std::vector<PendingRef> pending;
};

// The state of a fence read for a merge or an information request.
struct FenceState {
    char name[32] = {};
    std::vector<StoredPoint> points;
    std::vector<Timeline*> timelines;
};

struct Registry {
    std::mutex lock;
    int epollFd = -1;
    uint64_t nextTimelineId = 1;
    std::unordered_map<FileKey, std::unique_ptr<Timeline>, FileKeyHash> timelines;
    std::unordered_map<FileKey, std::unique_ptr<FenceEntry>, FileKeyHash> fences;
};

// Set once the first emulated timeline exists; until then no descriptor can be emulated and
// the lookups are skipped.
std::atomic<bool> sInUse{false};

// Never destroyed: fences may be used from other libraries' static destructors.
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

uint64_t monotonicNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

// Whether a point at `point` has been reached by a timeline at `value`, across wrap-around:
// a point is pending while it lies 1 to 2^31 - 1 ahead.
bool reached(uint32_t point, uint32_t value) {
    return static_cast<int32_t>(distance(point, value)) <= 0;
}

// The identity of `fd` when it is a pipe, as every emulated timeline and fence is.
bool keyOf(int fd, FileKey* key) {
    struct stat st{};
    if (fstat(fd, &st) != 0 || !S_ISFIFO(st.st_mode)) return false;
    *key = {st.st_dev, st.st_ino};
    return true;
}

void copyName(char (&dst)[32], const char* src) {
    memset(dst, 0, sizeof(dst));
    if (src != nullptr) strncpy(dst, src, sizeof(dst) - 1);
}

// The kernel's name for a sync file that was given none, cut to 31 bytes as the kernel cuts it:
// the fence's driver and timeline, its fence context and its value.
void kernelName(char (&dst)[32], const char* driver, const char* timeline, uint64_t context,
                uint32_t value) {
    const std::string full = std::string(driver) + "-" + timeline + std::to_string(context) +
                             "-" + std::to_string(value);
    copyName(dst, full.c_str());
}

// A sync file's status as the kernel reports it: the status of its first record that is not
// signalled without error (0 while it is active, or its error), else 1.
int32_t statusOf(const std::vector<StoredPoint>& points) {
    for (const StoredPoint& p : points)
        if (p.info.status <= 0) return p.info.status;
    return 1;
}

void closeOwnEnd(Registry& r, Watched* w) {
    epoll_ctl(r.epollFd, EPOLL_CTL_DEL, w->ownFd, nullptr);
    close(w->ownFd);
    w->ownFd = -1;
}

// Turns the caller's end readable for good. The caller may close its last descriptor at any
// moment (the fence is then reaped at the next call), and a write to a pipe nobody reads raises
// SIGPIPE, which would end the process: unless the caller's end is still held here
// (`callerHeld`), the signal is blocked for the write and taken back if the write raised it.
void markSignalled(int ownFd, bool callerHeld) {
    const char mark = 1;
    if (callerHeld) {
        (void)!write(ownFd, &mark, 1);
        return;
    }
    sigset_t pipeSignal, saved, pendingBefore;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &saved);
    sigpending(&pendingBefore);  // one already pending is not this write's
    if (write(ownFd, &mark, 1) < 0 && errno == EPIPE && !sigismember(&pendingBefore, SIGPIPE)) {
        const timespec now{};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

void signalPointLocked(const PendingRef& ref, int32_t status, uint64_t now) {
    FenceEntry* f = ref.fence;
    f->points[ref.index].info.status = status;
    f->points[ref.index].info.timestamp_ns = now;
    f->timelines[ref.index] = nullptr;
    if (--f->remaining == 0) markSignalled(f->ownFd, false);
}

// A fence whose every caller descriptor is closed: nobody can wait on it or ask of it any more.
void dropFenceLocked(Registry& r, FenceEntry* f) {
    for (size_t i = 0; i < f->timelines.size(); ++i) {
        Timeline* t = f->timelines[i];
        if (t == nullptr) continue;
        auto& refs = t->pending;
        refs.erase(std::remove_if(refs.begin(), refs.end(),
                                  [f](const PendingRef& p) { return p.fence == f; }),
                   refs.end());
    }
    closeOwnEnd(r, f);
    r.fences.erase(f->key);
}

// A timeline whose every caller descriptor is closed: its pending points signal with -ENOENT.
void destroyTimelineLocked(Registry& r, Timeline* t) {
    const std::vector<PendingRef> refs = std::move(t->pending);
    const uint64_t now = monotonicNs();
    for (const PendingRef& ref : refs) signalPointLocked(ref, -ENOENT, now);
    closeOwnEnd(r, t);
    r.timelines.erase(t->key);
}

// One event per epoll_wait: handling an event can free objects that later events of the same
// batch would point at, while a removed descriptor is never reported again.
void reapLocked(Registry& r) {
    epoll_event ev{};
    while (epoll_wait(r.epollFd, &ev, 1, 0) == 1) {
        Watched* w = static_cast<Watched*>(ev.data.ptr);
        if (w->isTimeline) destroyTimelineLocked(r, static_cast<Timeline*>(w));
        else dropFenceLocked(r, static_cast<FenceEntry*>(w));
    }
}

bool watch(Registry& r, Watched* w) {
    epoll_event ev{};
    ev.events = EPOLLRDHUP;
    ev.data.ptr = w;
    return epoll_ctl(r.epollFd, EPOLL_CTL_ADD, w->ownFd, &ev) == 0;
}

// Makes a fence holding `state`'s points; returns the caller's descriptor or -1 with errno.
int makeFenceLocked(Registry& r, FenceState&& state) {
    auto f = std::make_unique<FenceEntry>();
    memcpy(f->name, state.name, sizeof(f->name));
    f->points = std::move(state.points);
    f->timelines = std::move(state.timelines);
    for (Timeline* t : f->timelines)
        if (t != nullptr) ++f->remaining;

    // Everything that can throw happens before the first descriptor exists.
    for (Timeline* t : f->timelines)
        if (t != nullptr && t->pending.size() == t->pending.capacity())
            t->pending.reserve(2 * t->pending.size() + 4);
    r.fences.reserve(r.fences.size() + 1);

    // sv[0] is the caller's end, sv[1] the own end.
    int sv[2];
    if (pipe2(sv, O_CLOEXEC) != 0) return -1;
    f->ownFd = sv[1];
    if (!keyOf(sv[0], &f->key) || !watch(r, f.get())) {
        const int saved = errno;
        close(sv[0]);
        close(sv[1]);
        errno = saved;
        return -1;
    }
    if (f->remaining == 0) markSignalled(sv[1], true);
    for (size_t i = 0; i < f->timelines.size(); ++i)
        if (f->timelines[i] != nullptr) f->timelines[i]->pending.push_back({f.get(), i});
    FenceEntry* raw = f.get();
    r.fences.emplace(raw->key, std::move(f));
    return sv[0];
}

// Reads the state of the emulated fence `fd`; false when `fd` is not one.
bool readFenceLocked(Registry& r, int fd, FenceState* out) {
    FileKey key;
    if (!keyOf(fd, &key)) return false;
    auto it = r.fences.find(key);
    if (it == r.fences.end()) return false;
    memcpy(out->name, it->second->name, sizeof(out->name));
    out->points = it->second->points;
    out->timelines = it->second->timelines;
    return true;
}

Timeline* findTimelineLocked(Registry& r, int fd) {
    FileKey key;
    if (!keyOf(fd, &key)) return nullptr;
    auto it = r.timelines.find(key);
    return it == r.timelines.end() ? nullptr : it->second.get();
}

// Runs `op` under the lock after reaping; an allocation failure gives `failure` with ENOMEM.
template <typename T, typename Op>
std::optional<T> locked(T failure, Op&& op) {
    if (!sInUse.load(std::memory_order_acquire)) return std::nullopt;
    Registry& r = registry();
    try {
        std::lock_guard<std::mutex> guard(r.lock);
        reapLocked(r);
        return op(r);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return failure;
    }
}

}  // namespace

int emulatedTimelineCreate() {
    Registry& r = registry();
    try {
        std::lock_guard<std::mutex> guard(r.lock);
        if (r.epollFd < 0) {
            r.epollFd = epoll_create1(EPOLL_CLOEXEC);
            if (r.epollFd < 0) return -1;
        }
        reapLocked(r);
        auto t = std::make_unique<Timeline>();
        t->id = r.nextTimelineId++;
        // Timelines are named after the thread that made them, as the kernel's are.
        char comm[17] = {};
        prctl(PR_GET_NAME, comm);
        copyName(t->name, comm);
        r.timelines.reserve(r.timelines.size() + 1);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return -1;
        t->ownFd = ends[1];
        if (!keyOf(ends[0], &t->key) || !watch(r, t.get())) {
            const int saved = errno;
            close(ends[0]);
            close(ends[1]);
            errno = saved;
            return -1;
        }
        Timeline* raw = t.get();
        r.timelines.emplace(raw->key, std::move(t));
        sInUse.store(true, std::memory_order_release);
        return ends[0];
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return -1;
    }
}

std::optional<int> emulatedFenceCreate(int timeline, const char* /*name*/, unsigned value) {
    return locked<int>(-1, [&](Registry& r) -> std::optional<int> {
        Timeline* t = findTimelineLocked(r, timeline);
        if (t == nullptr) return std::nullopt;
        // The driver keeps no name of the caller's for a fence: the kernel names its sync file
        // after the driver, the timeline, its fence context and the value.
        FenceState state;
        kernelName(state.name, kDriverName, t->name, t->id, value);
        StoredPoint p{};
        memcpy(p.info.obj_name, t->name, sizeof(p.info.obj_name));
        copyName(p.info.driver_name, kDriverName);
        p.timelineId = t->id;
        p.value = value;
        if (reached(value, t->value)) {
            p.info.status = 1;
            p.info.timestamp_ns = monotonicNs();
            state.timelines.push_back(nullptr);
        } else {
            state.timelines.push_back(t);
        }
        state.points.push_back(p);
        return makeFenceLocked(r, std::move(state));
    });
}

std::optional<int> emulatedTimelineInc(int timeline, unsigned count) {
    return locked<int>(-1, [&](Registry& r) -> std::optional<int> {
        Timeline* t = findTimelineLocked(r, timeline);
        if (t == nullptr) return std::nullopt;
        // The counter passes every value on the way, so one advance by 2^31 or more signals
        // each pending point it passes, as a run of smaller advances would.
        const uint32_t from = t->value;
        t->value = advanced(from, count);
        std::vector<PendingRef> due;
        auto& refs = t->pending;
        auto keep = std::partition(refs.begin(), refs.end(), [from, count](const PendingRef& p) {
            return distance(p.fence->points[p.index].value, from) > count;
        });
        due.assign(keep, refs.end());
        refs.erase(keep, refs.end());
        const uint64_t now = monotonicNs();
        // Each due point belongs to a different fence, so completing one frees no other.
        for (const PendingRef& ref : due) signalPointLocked(ref, 1, now);
        return 0;
    });
}

std::optional<int> emulatedMerge(const char* name, int fd1, int fd2) {
    return locked<int>(-1, [&](Registry& r) -> std::optional<int> {
        FenceState a, b;
        const bool isA = readFenceLocked(r, fd1, &a);
        const bool isB = fd2 == fd1 ? isA : readFenceLocked(r, fd2, &b);
        if (!isA && !isB) return std::nullopt;
        if (!isA || !isB) {
            errno = EINVAL;  // an emulated fence cannot be merged with a kernel one
            return -1;
        }
        if (fd2 == fd1) b = a;
        // As the kernel merges: the points of both that are still pending, ordered by timeline
        // (in the order the timelines were made) and only the latest of each; when none is
        // pending, one signalled record of the kernel's stub fence, at the latest signal time.
        FenceState merged;
        uint64_t latest = 0;
        for (FenceState* from : {&a, &b}) {
            for (size_t i = 0; i < from->points.size(); ++i) {
                const StoredPoint& p = from->points[i];
                if (p.info.status == 0) {
                    merged.points.push_back(p);
                    merged.timelines.push_back(from->timelines[i]);
                } else {
                    latest = std::max<uint64_t>(latest, p.info.timestamp_ns);
                }
            }
        }
        std::vector<size_t> order(merged.points.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(), [&merged](size_t x, size_t y) {
            const StoredPoint &p = merged.points[x], &q = merged.points[y];
            if (p.timelineId != q.timelineId) return p.timelineId < q.timelineId;
            return static_cast<int32_t>(distance(p.value, q.value)) > 0;
        });
        FenceState kept;
        for (size_t i : order) {
            const StoredPoint& p = merged.points[i];
            if (!kept.points.empty() && kept.points.back().timelineId == p.timelineId) continue;
            kept.points.push_back(p);
            kept.timelines.push_back(merged.timelines[i]);
        }
        if (kept.points.empty()) {
            StoredPoint stub{};
            copyName(stub.info.obj_name, kStubName);
            copyName(stub.info.driver_name, kStubName);
            stub.info.status = 1;
            stub.info.timestamp_ns = latest;
            kept.points.push_back(stub);
            kept.timelines.push_back(nullptr);
        }
        // Without a name the kernel names the result after the fence it is: the one pending
        // point's own, the stub's, or an array of several on a context of its own.
        if (name != nullptr && name[0] != '\0') {
            copyName(kept.name, name);
        } else if (kept.points.size() > 1) {
            kernelName(kept.name, "dma_fence_array", "unbound", r.nextTimelineId++, 1);
        } else if (kept.points[0].timelineId == 0) {
            kernelName(kept.name, kStubName, kStubName, 0, 0);
        } else {
            const StoredPoint& p = kept.points[0];
            kernelName(kept.name, kDriverName, p.info.obj_name, p.timelineId, p.value);
        }
        merged = std::move(kept);
        return makeFenceLocked(r, std::move(merged));
    });
}

int emulatedWatchFd() {
    return sInUse.load(std::memory_order_acquire) ? registry().epollFd : -1;
}

void emulatedReap() {
    locked<int>(0, [](Registry&) -> std::optional<int> { return 0; });
}

std::optional<struct sync_file_info*> emulatedFileInfo(int fd) {
    return locked<struct sync_file_info*>(
            nullptr, [&](Registry& r) -> std::optional<struct sync_file_info*> {
                FenceState state;
                if (!readFenceLocked(r, fd, &state)) return std::nullopt;
                const size_t n = state.points.size();
                auto* info = static_cast<struct sync_file_info*>(
                        calloc(1, sizeof(struct sync_file_info) + n * sizeof(sync_fence_info)));
                if (info == nullptr) {
                    errno = ENOMEM;
                    return nullptr;
                }
                memcpy(info->name, state.name, sizeof(info->name));
                info->status = statusOf(state.points);
                info->num_fences = static_cast<uint32_t>(n);
                auto* records = reinterpret_cast<struct sync_fence_info*>(info + 1);
                for (size_t i = 0; i < n; ++i) records[i] = state.points[i].info;
                info->sync_fence_info = reinterpret_cast<uintptr_t>(records);
                return info;
            });
}

}  // namespace zorcam_sync
