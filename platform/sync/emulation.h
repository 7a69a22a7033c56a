#pragma once

// In-process software timelines and fences, used when the kernel has no sw_sync driver.
//
// Each function other than emulatedTimelineCreate returns std::nullopt when a descriptor it
// was given is not an emulated timeline or fence, so the caller can pass it on to the kernel.
// Otherwise the result is the function's C result, with errno set on failure.

#include <linux/sync_file.h>

#include <optional>

namespace zorcam_sync {

int emulatedTimelineCreate();
std::optional<int> emulatedFenceCreate(int timeline, const char* name, unsigned value);
std::optional<int> emulatedTimelineInc(int timeline, unsigned count);
std::optional<int> emulatedMerge(const char* name, int fd1, int fd2);
std::optional<struct sync_file_info*> emulatedFileInfo(int fd);

// The emulation's epoll set: readable while something the caller closed waits to be reaped;
// -1 before the first emulated timeline. A wait polls it beside the fence, so that a timeline
// closed before or during the wait errors its points and ends the wait, as the kernel's would.
int emulatedWatchFd();
// Reaps what the caller closed: fences nobody holds go, closed timelines error their points.
void emulatedReap();

}  // namespace zorcam_sync
