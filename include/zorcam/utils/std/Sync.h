#pragma once

/// \file
/// Fences: kernel sync-file descriptors wrapped as reference-counted objects that can be waited
/// on, merged, duplicated and asked for their signal time.

#include <zorcam/utils/std/Export.h>

#include <utils/RefBase.h>

#include <cstdint>

namespace NSCam {
namespace Utils {
/// Fences and timelines.
namespace Sync {

/// A fence: one sync-file descriptor, owned. Hold it through android::sp; a fence may be
/// shared by any number of threads, which may all wait on it at once.
class ZORCAM_EXPORT IFence : public virtual android::RefBase {
public:
    /// Builds a fence that takes over `fd` (no copy is made; the fence closes it). -1 gives a
    /// new invalid fence. The name is read from the sync file.
    /// \param fd a sync-file descriptor, or -1.
    /// \return the new fence; never null.
    static android::sp<IFence> create(int fd);

    /// A new fence that signals when both inputs have; one valid input is merged with itself,
    /// two invalid ones give NO_FENCE. Pass NO_FENCE, not null, for a missing fence. Returns
    /// NO_FENCE (and logs an error) when the merge fails. The inputs keep their descriptors.
    /// \param name the new sync file's name.
    /// \param f1 a fence, or NO_FENCE.
    /// \param f2 a fence, or NO_FENCE.
    /// \return the merged fence, or NO_FENCE.
    static android::sp<IFence> merge(const char* name, const android::sp<IFence>& f1,
                                     const android::sp<IFence>& f2);

    /// The shared invalid fence (descriptor -1, empty name); lives for the whole process.
    static const android::sp<IFence> NO_FENCE;

    /// Duplicates the descriptor.
    /// \return a new descriptor for the same sync file, owned by the caller; -1 (errno set)
    /// when the fence is invalid.
    virtual int dup() const = 0;

    /// Waits until the fence signals or timeout ms pass.
    /// \param timeout the limit in ms; -1: no limit.
    /// \return 0 when it signalled (at once for an invalid fence), otherwise -errno (-ETIME on
    /// time-out).
    virtual int wait(int timeout) = 0;

    /// Waits 3000 ms, logs a warning naming `logname` if the fence has not signalled by then,
    /// and waits on without limit.
    /// \param logname names the waiter in the warning.
    /// \return 0, or -errno on failure.
    virtual int waitForever(const char* logname) = 0;

    /// The sync file's name.
    /// \return the sync file's name when the fence was built; empty for an invalid fence.
    /// Valid as long as the fence lives.
    virtual const char* name() const = 0;

    /// Whether the fence is valid.
    /// \return whether the fence holds a descriptor.
    virtual bool isValid() const = 0;

    /// The descriptor, still owned by the fence.
    /// \return the descriptor itself (-1 when invalid); it stays owned by the fence.
    virtual int getFd() const = 0;

    /// When the fence signalled.
    /// \return when the fence signalled, in ns of the monotonic clock (the latest of its
    /// points); INT64_MAX while it has not; -1 for an invalid fence or when the sync file
    /// cannot be read.
    virtual int64_t getSignalTime() const = 0;

protected:
    virtual ~IFence() = default;
};

/// Software sync timelines are not available to the camera stack.
class ZORCAM_EXPORT ITimeline : public virtual android::RefBase {
public:
    /// Always logs an error.
    /// \param name not used.
    /// \return null.
    static android::sp<ITimeline> create(const char* name);

protected:
    virtual ~ITimeline() = default;
};

}  // namespace Sync
}  // namespace Utils
}  // namespace NSCam
