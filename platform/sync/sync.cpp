// libsync for a Linux host: waits, merges and information requests on sync files. Kernel sync
// files go through the sync_file ioctls; fences of the in-process sw_sync emulation are
// answered by the emulation. Waiting is the same poll for both.

#include <android/sync.h>
#include <android/sync_legacy.h>

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

// Both layouts keep names in 32-byte arrays; the copy is always terminated.
void copyName(char (&to)[32], const char (&from)[32]) {
    memcpy(to, from, sizeof(to));
    to[sizeof(to) - 1] = '\0';
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
        // A kernel sync file wakes its waiters when its timeline's last descriptor is closed;
        // an emulated one learns of the close only when the emulation reaps. So the emulation's
        // set is watched too (poll skips it while it is -1), and a wake on it reaps and waits on.
        struct pollfd pfd[2] = {{fd, POLLIN, 0}, {zorcam_sync::emulatedWatchFd(), POLLIN, 0}};
        const int ret = poll(pfd, 2, pollTimeout);
        if (ret > 0 && pfd[0].revents != 0) {
            if (pfd[0].revents & (POLLERR | POLLNVAL)) {
                errno = EINVAL;
                return -1;
            }
            return 0;
        }
        if (ret > 0) {
            zorcam_sync::emulatedReap();
        } else if (ret == 0) {
            errno = ETIME;
            return -1;
        } else if (errno != EINTR && errno != EAGAIN) {
            return -1;
        }
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

extern "C" struct sync_fence_info_data* sync_fence_info(int fd) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return nullptr;
    const struct sync_fence_info* records = sync_get_fence_info(info);
    const uint64_t size =
        sizeof(struct sync_fence_info_data) + uint64_t{info->num_fences} * sizeof(struct sync_pt_info);
    auto* legacy = size <= UINT32_MAX ? static_cast<struct sync_fence_info_data*>(calloc(1, size))
                                      : nullptr;
    if (legacy == nullptr) {
        sync_file_info_free(info);
        errno = ENOMEM;
        return nullptr;
    }
    legacy->len = static_cast<uint32_t>(size);
    copyName(legacy->name, info->name);
    legacy->status = info->status;
    auto* points = reinterpret_cast<struct sync_pt_info*>(legacy->pt_info);
    for (uint32_t i = 0; i < info->num_fences; ++i) {
        points[i].len = sizeof(struct sync_pt_info);
        copyName(points[i].obj_name, records[i].obj_name);
        copyName(points[i].driver_name, records[i].driver_name);
        points[i].status = records[i].status;
        points[i].timestamp_ns = records[i].timestamp_ns;
    }
    sync_file_info_free(info);
    return legacy;
}

extern "C" struct sync_pt_info* sync_pt_info(struct sync_fence_info_data* info,
                                             struct sync_pt_info* itr) {
    if (info == nullptr) return nullptr;
    uint8_t* const base = reinterpret_cast<uint8_t*>(info);
    uint8_t* next = itr == nullptr ? info->pt_info : reinterpret_cast<uint8_t*>(itr) + itr->len;
    // A point must lie whole inside the record; a zero length would never move on.
    const uint64_t offset = static_cast<uint64_t>(next - base);
    if (offset + sizeof(struct sync_pt_info) > info->len) return nullptr;
    if (itr != nullptr && itr->len == 0) return nullptr;
    return reinterpret_cast<struct sync_pt_info*>(next);
}

extern "C" void sync_fence_info_free(struct sync_fence_info_data* info) {
    free(info);
}
