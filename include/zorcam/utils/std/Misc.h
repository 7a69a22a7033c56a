#pragma once

// Miscellaneous camera utilities in NSCam::Utils.

#include <zorcam/utils/std/Export.h>
#include <zorcam/utils/std/Log.h>

#include <utils/Mutex.h>

#include <mutex>

namespace NSCam {
namespace Utils {

// ---- Directories and plain files

/// Makes every directory along path, parents first, with mode (before the umask); existing
/// directories are kept. True when all of them exist as directories afterwards. Directories
/// made before a failing component stay. Any thread.
ZORCAM_EXPORT bool makePath(char const* path, unsigned int mode);

/// Writes size bytes of buf to fname, created or truncated with mode 0704 (before the umask).
/// False only when the file cannot be opened; a failed write is logged, and the file then
/// holds the bytes written before it. Blocks on file I/O; any thread.
ZORCAM_EXPORT bool saveBufToFile(char const* fname, unsigned char* buf, unsigned int size);

/// Reads up to size bytes of fname into buf, which must hold size bytes; with size 0 the
/// whole file is read and buf must hold the file's length. Returns the bytes read: 0 when the
/// file cannot be opened, fewer than size at end of file or after a read error. Any thread.
ZORCAM_EXPORT unsigned int loadFileToBuf(char const* fname, unsigned char* buf, unsigned int size);


// ---- Dump through the camera-dump service

/// Hands size bytes of buf to the camera-dump service, which writes them to fname. The bytes
/// travel in an ashmem block; buf is only read, never kept. A path outside /data/engineercamera
/// and /sdcard is moved under /sdcard (its file name kept). False only when the service
/// cannot be reached; a refused buffer or a failed allocation is logged and returns true.
/// Blocks until the service has written the file; any thread.
ZORCAM_EXPORT bool saveBufToSDFile(char const* fname, unsigned char* buf, unsigned int size);


// ---- Thread priority

/// Sets the calling thread's scheduling. policy 0 (SCHED_OTHER) makes the thread time-sharing
/// with priority as its nice value; any other policy is handed to the kernel with priority as
/// its real-time sched_priority. Always true: a change the kernel refuses (no privilege, bad
/// value) leaves the thread as it was.
ZORCAM_EXPORT bool setThreadPriority(int policy, int priority);

/// Reads the calling thread's policy and, for SCHED_OTHER (0), its nice value, otherwise its
/// real-time sched_priority. Always true; a policy that cannot be read comes back as -1.
ZORCAM_EXPORT bool getThreadPriority(int& policy, int& priority);

// ---- Lock helpers

/// Does not lock: returns false at once and leaves lk and its mutex untouched. Never throws.
/// Provided for std::mutex and android::Mutex; callers that need the lock taken without an
/// exception use NSCam::JobQueueStatic::lock (StlUtils.h).
template <typename MutexType>
ZORCAM_EXPORT bool lockNoexcept(std::unique_lock<MutexType>& lk) noexcept;

extern template ZORCAM_EXPORT bool lockNoexcept<std::mutex>(
        std::unique_lock<std::mutex>& lk) noexcept;
extern template ZORCAM_EXPORT bool lockNoexcept<android::Mutex>(
        std::unique_lock<android::Mutex>& lk) noexcept;

// ---- Fault reports and call stacks

/// Raises a warning report for module to the exception-report service. The message is
/// formatted from format and its arguments without a length limit. The second argument is
/// not used. Always returns 0, whatever the service answers; any thread.
ZORCAM_EXPORT int triggerKfeWarning(char const* module, char const* unused, char const* format, ...)
        __attribute__((format(printf, 3, 4)));

/// Raises an exception report; otherwise as triggerKfeWarning.
ZORCAM_EXPORT int triggerKfeException(char const* module, char const* unused, char const* format,
                                      ...) __attribute__((format(printf, 3, 4)));

/// Writes the calling thread's call stack to the Android log as one info entry under the tag
/// "ZorCam/Utils", or "ZorCam/Utils/<suffix>" when suffix is not null. Written whatever the
/// unified logger's switches say.
ZORCAM_EXPORT void dumpCallStack(char const* suffix);

}  // namespace Utils
}  // namespace NSCam
