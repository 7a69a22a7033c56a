// libsync for a Linux host: waits, merges and information requests on sync files. Kernel sync
// files go through the sync_file ioctls; fences of the in-process sw_sync emulation are
// answered by the emulation. Waiting is the same poll for both.

#include <android/sync.h>

#include "emulation.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>

#include <cstdint>
#include <cstdlib>

namespace {

int64_t monotonicNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int ioctlRetry(int fd, unsigned long request, void* arg) {
    int ret;
    do {
        ret = ioctl(fd, request, arg);
    } while (ret == -1 && (errno == EINTR || errno == EAGAIN));
    return ret;
}

}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    if (fd < 0) {
        errno = EINVAL;
        return -1;
    }
    const int64_t deadline = timeout >= 0 ? monotonicNs() + int64_t{timeout} * 1000000 : 0;
    int pollTimeout = timeout;
    for (;;) {
        struct pollfd pfd = {fd, POLLIN, 0};
        const int ret = poll(&pfd, 1, pollTimeout);
        if (ret > 0) {
            if (pfd.revents & (POLLERR | POLLNVAL)) {
                errno = EINVAL;
                return -1;
            }
            return 0;
        }
        if (ret == 0) {
            errno = ETIME;
            return -1;
        }
        if (errno != EINTR && errno != EAGAIN) return -1;
        if (timeout >= 0) {
            // Poll again only for what is left; rounded up so that the wait never ends early.
            const int64_t left = deadline - monotonicNs();
            pollTimeout = left > 0 ? static_cast<int>((left + 999999) / 1000000) : 0;
        }
    }
}

extern "C" int sync_merge(const char* name, int fd1, int fd2) {
    if (auto emulated = zorcam_sync::emulatedMerge(name, fd1, fd2)) return *emulated;
    struct sync_merge_data data;
    memset(&data, 0, sizeof(data));
    if (name != nullptr) strncpy(data.name, name, sizeof(data.name) - 1);
    data.fd2 = fd2;
    if (ioctlRetry(fd1, SYNC_IOC_MERGE, &data) < 0) return -1;
    return data.fence;
}

extern "C" struct sync_file_info* sync_file_info(int32_t fd) {
    if (auto emulated = zorcam_sync::emulatedFileInfo(fd)) return *emulated;
    // First the count of fences, then the records into memory sized for them.
    struct sync_file_info probe;
    memset(&probe, 0, sizeof(probe));
    if (ioctlRetry(fd, SYNC_IOC_FILE_INFO, &probe) < 0) return nullptr;
    const uint64_t count = probe.num_fences;
    const uint64_t size = sizeof(struct sync_file_info) + count * sizeof(struct sync_fence_info);
    auto* info = static_cast<struct sync_file_info*>(calloc(1, size));
    if (info == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    if (count == 0) {
        *info = probe;
        return info;
    }
    info->num_fences = probe.num_fences;
    info->sync_fence_info = reinterpret_cast<uintptr_t>(info + 1);
    if (ioctlRetry(fd, SYNC_IOC_FILE_INFO, info) < 0) {
        const int saved = errno;
        free(info);
        errno = saved;
        return nullptr;
    }
    return info;
}

extern "C" void sync_file_info_free(struct sync_file_info* info) {
    free(info);
}
