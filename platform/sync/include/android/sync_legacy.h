#pragma once
#pragma GCC system_header

// The older information calls of the host libsync, kept for code written against them. The
// platform's <android/sync.h> no longer declares them, so code that still calls them declares
// them itself after including it; code that does not can include this header instead.
// One sync_fence_info_data is followed by `len - sizeof(sync_fence_info_data)` bytes of
// sync_pt_info records, each `len` bytes long; they carry the same name, statuses and signal
// times as sync_file_info.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// One point of a sync file: its timeline's name, its driver, its status (1 signalled,
/// 0 active, negative on error) and the time it signalled (ns of the monotonic clock, 0 while
/// active).
struct sync_pt_info {
    uint32_t len;
    char obj_name[32];
    char driver_name[32];
    int32_t status;
    uint64_t timestamp_ns;
    uint8_t driver_data[0];
};

/// A sync file: `len` bytes in all, its name, its status and its points in `pt_info`.
struct sync_fence_info_data {
    uint32_t len;
    char name[32];
    int32_t status;
    uint8_t pt_info[0];
};

/// Reads the sync file `fd` in the older layout. Returns memory the caller releases with
/// sync_fence_info_free, or NULL with errno set.
struct sync_fence_info_data* sync_fence_info(int fd);

/// Walks the points of `info`: NULL for `itr` gives the first, a point gives the one after it.
/// Returns NULL after the last point.
struct sync_pt_info* sync_pt_info(struct sync_fence_info_data* info, struct sync_pt_info* itr);

/// Releases what sync_fence_info returned; NULL is ignored.
void sync_fence_info_free(struct sync_fence_info_data* info);

#ifdef __cplusplus
}
#endif
