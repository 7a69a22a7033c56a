#pragma once

// Software sync timelines for tests and host programs. A timeline is a counter that starts at
// 0; a fence made on it at `value` signals once the counter reaches `value`. The kernel's
// sw_sync driver is used when it is present; otherwise, or when the environment variable
// ZORCAM_SW_SYNC is "emulated", timelines and fences are emulated inside the process and their
// fences work with every function of <android/sync.h>. Descriptors returned belong to the
// caller and are released with close(); closing a timeline signals its pending fences with the
// error -ENOENT. Emulated fences and timelines serve this process only: they cannot be handed
// to another process, and what was closed while still pending (a fence, or a timeline with
// pending fences) is released, or signalled, at the next libsync call of the process.

#ifdef __cplusplus
extern "C" {
#endif

/// Makes a new timeline at 0. Returns its descriptor, or -1 with errno set.
int sw_sync_timeline_create(void);

/// Makes a fence that signals when `timeline` reaches `value`. As with the kernel's driver,
/// `name` is not kept: the fence is named "sw_sync-<timeline><context>-<value>", the timeline
/// being named after the thread that made it. Returns the fence's descriptor, or -1 with errno
/// set.
int sw_sync_fence_create(int timeline, const char* name, unsigned value);

/// Advances `timeline` by `count` and signals the fences it reached. Returns 0, or -1 with errno
/// set.
int sw_sync_timeline_inc(int timeline, unsigned count);

#ifdef __cplusplus
}
#endif
