#pragma once
// A system header wherever it is found, like the platform's: its functions share their names
// with the kernel's structures, which GCC's -Wshadow would report in every including file.
#pragma GCC system_header

// Sync files for a Linux host: waits, merges and information on kernel sync files and on the
// software fences of <android/sw_sync.h>, with the interface and results of the platform's
// libsync. All functions are thread-safe; descriptors returned belong to the caller.

#include <linux/sync_file.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Waits until the sync file `fd` signals or `timeout` ms pass (-1: no limit). Returns 0 once it
/// signalled; -1 with errno ETIME on time-out, EINVAL for a negative or unusable descriptor.
int sync_wait(int fd, int timeout);

/// Makes a new sync file, named `name` (at most 31 bytes are kept), that signals when both `fd1`
/// and `fd2` have signalled. Returns the new descriptor, which the caller closes, or -1 with
/// errno set. `fd1` may equal `fd2`.
int sync_merge(const char* name, int fd1, int fd2);

/// Reads the name, status (1 signalled, 0 active, negative on error) and one record per fence
/// of the sync file `fd`. Returns memory the caller releases with sync_file_info_free, or NULL
/// with errno set.
struct sync_file_info* sync_file_info(int32_t fd);

/// Releases what sync_file_info returned; NULL is ignored.
void sync_file_info_free(struct sync_file_info* info);

/// The fence records of `info`: info->num_fences entries, valid until the info is released.
static inline struct sync_fence_info* sync_get_fence_info(const struct sync_file_info* info) {
    return (struct sync_fence_info*)(uintptr_t)info->sync_fence_info;
}

#ifdef __cplusplus
}
#endif
