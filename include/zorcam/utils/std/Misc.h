#pragma once

/// \file
/// Miscellaneous camera utilities: files and dumps, thread priority, lock helpers, fault
/// reports and call stacks.

#include <zorcam/utils/std/Export.h>
#include <zorcam/utils/std/Log.h>

#include <utils/Mutex.h>

#include <mutex>

namespace NSCam {
namespace Utils {

// ---- Directories and plain files

/// Makes every directory along path, parents first, with mode (before the umask); existing
/// directories are kept. Directories made before a failing component stay. Any thread.
/// \param path the directory to make; null or a component that is not a directory fails
/// with an error line.
/// \param mode permission bits of the directories made.
/// \return true when every directory along path exists afterwards.
ZORCAM_EXPORT bool makePath(char const* path, unsigned int mode);

/// Writes size bytes of buf to fname, created or truncated with mode 0704 (before the umask).
/// A failed write is logged, and the file then holds the bytes written before it. Blocks on
/// file I/O; any thread.
/// \param fname the file; null fails with an error line.
/// \param buf the bytes; only read.
/// \param size how many bytes of buf to write.
/// \return false only when the file cannot be opened.
ZORCAM_EXPORT bool saveBufToFile(char const* fname, unsigned char* buf, unsigned int size);

/// Reads up to size bytes of fname into buf. Any thread.
/// \param fname the file; null reads nothing, with an error line.
/// \param buf receives the bytes; it must hold size bytes, or the file's length for size 0.
/// \param size how many bytes to read; 0 reads the whole file.
/// \return the bytes read: 0 when the file cannot be opened, fewer than size at end of file
/// or after a read error.
ZORCAM_EXPORT unsigned int loadFileToBuf(char const* fname, unsigned char* buf, unsigned int size);


// ---- Dump through the camera-dump service

/// Hands size bytes of buf to the camera-dump service, which writes them to fname. The bytes
/// travel in an ashmem block; buf is only read, never kept. A path outside /data/engineercamera
/// and /sdcard is moved under /sdcard (its file name kept). False only when the service
/// cannot be reached; a refused buffer or a failed allocation is logged and returns true.
/// Blocks until the service has written the file; any thread.
/// \param fname the file the service writes; null is logged and returns true.
/// \param buf the bytes; only read.
/// \param size how many bytes of buf to hand over.
/// \return false only when the service cannot be reached.
ZORCAM_EXPORT bool saveBufToSDFile(char const* fname, unsigned char* buf, unsigned int size);


// ---- Thread priority

/// Sets the calling thread's scheduling. A change the kernel refuses (no privilege, bad value)
/// leaves the thread as it was.
/// \param policy 0 (SCHED_OTHER) makes the thread time-sharing; any other policy is handed to
/// the kernel as it is.
/// \param priority the nice value for SCHED_OTHER, the real-time sched_priority otherwise.
/// \return true, always.
ZORCAM_EXPORT bool setThreadPriority(int policy, int priority);

/// Reads the calling thread's scheduling.
/// \param policy receives the policy; -1 when it cannot be read.
/// \param priority receives the nice value for SCHED_OTHER (0), the real-time
/// sched_priority otherwise.
/// \return true, always.
ZORCAM_EXPORT bool getThreadPriority(int& policy, int& priority);

// ---- Lock helpers

/// Does not lock: returns false at once and leaves lk and its mutex untouched. Never throws.
/// Provided for std::mutex and android::Mutex; callers that need the lock taken without an
/// exception use NSCam::JobQueueStatic::lock (StlUtils.h).
/// \tparam MutexType std::mutex or android::Mutex.
/// \param lk left as it is.
/// \return false.
template <typename MutexType>
ZORCAM_EXPORT bool lockNoexcept(std::unique_lock<MutexType>& lk) noexcept;

/// The instance for std::mutex, exported. \copydetails lockNoexcept
extern template ZORCAM_EXPORT bool lockNoexcept<std::mutex>(
        std::unique_lock<std::mutex>& lk) noexcept;
/// The instance for android::Mutex, exported. \copydetails lockNoexcept
extern template ZORCAM_EXPORT bool lockNoexcept<android::Mutex>(
        std::unique_lock<android::Mutex>& lk) noexcept;

// ---- Fault reports and call stacks

/// Raises a warning report for module to the exception-report service. The message is
/// formatted from format and its arguments without a length limit. The second argument is
/// not used. Any thread.
/// \param module the reporting module's name.
/// \param unused not used.
/// \param format printf format of the message, followed by its arguments.
/// \return 0, whatever the service answers.
ZORCAM_EXPORT int triggerKfeWarning(char const* module, char const* unused, char const* format, ...)
        __attribute__((format(printf, 3, 4)));

/// Raises an exception report; otherwise as triggerKfeWarning().
/// \param module the reporting module's name.
/// \param unused not used.
/// \param format printf format of the message, followed by its arguments.
/// \return 0, whatever the service answers.
ZORCAM_EXPORT int triggerKfeException(char const* module, char const* unused, char const* format,
                                      ...) __attribute__((format(printf, 3, 4)));

/// Writes the calling thread's call stack to the Android log as one info entry under the tag
/// "ZorCam/Utils", or "ZorCam/Utils/<suffix>" when suffix is not null. Written whatever the
/// unified logger's switches say. Any thread.
/// \param suffix appended to the tag after a slash; may be null.
ZORCAM_EXPORT void dumpCallStack(char const* suffix);

}  // namespace Utils
}  // namespace NSCam
