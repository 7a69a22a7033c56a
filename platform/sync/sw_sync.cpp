// Software sync timelines: the kernel's sw_sync driver when it is there, the in-process
// emulation otherwise (or when ZORCAM_SW_SYNC=emulated). Timeline and fence calls go to
// whichever made the timeline.

#include <android/sw_sync.h>

#include "emulation.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/types.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace {

// The kernel driver's interface (drivers/dma-buf/sw_sync.c); no uapi header carries it.
struct sw_sync_create_fence_data {
    __u32 value;
    char name[32];
    __s32 fence;
};
#define SW_SYNC_IOC_MAGIC 'W'
#define SW_SYNC_IOC_CREATE_FENCE _IOWR(SW_SYNC_IOC_MAGIC, 0, struct sw_sync_create_fence_data)
#define SW_SYNC_IOC_INC _IOW(SW_SYNC_IOC_MAGIC, 1, __u32)

constexpr const char* kDriverPaths[] = {"/sys/kernel/debug/sync/sw_sync", "/dev/sw_sync"};

// Set once the driver has been found missing: it does not appear while the process runs.
std::atomic<bool> sNoDriver{false};

bool emulationForced() {
    const char* mode = getenv("ZORCAM_SW_SYNC");
    return mode != nullptr && strcmp(mode, "emulated") == 0;
}

int openDriver() {
    if (sNoDriver.load(std::memory_order_relaxed)) return -1;
    for (const char* path : kDriverPaths) {
        const int fd = open(path, O_RDWR | O_CLOEXEC);
        if (fd >= 0) return fd;
    }
    sNoDriver.store(true, std::memory_order_relaxed);
    return -1;
}

}  // namespace

extern "C" int sw_sync_timeline_create(void) {
    if (!emulationForced()) {
        const int fd = openDriver();
        if (fd >= 0) return fd;
    }
    return zorcam_sync::emulatedTimelineCreate();
}

extern "C" int sw_sync_fence_create(int timeline, const char* name, unsigned value) {
    if (auto emulated = zorcam_sync::emulatedFenceCreate(timeline, name, value)) return *emulated;
    struct sw_sync_create_fence_data data;
    memset(&data, 0, sizeof(data));
    data.value = value;
    if (name != nullptr) strncpy(data.name, name, sizeof(data.name) - 1);
    if (ioctl(timeline, SW_SYNC_IOC_CREATE_FENCE, &data) < 0) return -1;
    return data.fence;
}

extern "C" int sw_sync_timeline_inc(int timeline, unsigned count) {
    if (auto emulated = zorcam_sync::emulatedTimelineInc(timeline, count)) return *emulated;
    __u32 arg = count;
    return ioctl(timeline, SW_SYNC_IOC_INC, &arg);
}
