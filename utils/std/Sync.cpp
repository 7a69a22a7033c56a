// Fences over sync-file descriptors, through libsync.

#include <zorcam/utils/std/Sync.h>

#include "LogMacros.h"

#include <android/sync.h>
#include <cutils/trace.h>
#include <utils/String8.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <new>

extern "C" {
void atrace_begin_body(const char* name);
void atrace_end_body();
}

namespace NSCam {
namespace Utils {
namespace Sync {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;
constexpr unsigned kBoundedWaitMs = 3000;

struct FileInfoDeleter {
    void operator()(struct sync_file_info* info) const { sync_file_info_free(info); }
};
using FileInfo = std::unique_ptr<struct sync_file_info, FileInfoDeleter>;

// A trace section under the camera tag, closed however the scope is left. It ends only what
// it began, so a tag switched on or off meanwhile cannot unbalance the trace.
class ScopedTrace {
public:
    explicit ScopedTrace(const char* name) {
        if (!atrace_is_ready.load(std::memory_order_acquire)) atrace_setup();
        mActive = (atrace_enabled_tags & ATRACE_TAG_CAMERA) != 0;
        if (mActive) atrace_begin_body(name);
    }
    ~ScopedTrace() {
        if (mActive) atrace_end_body();
    }
    ScopedTrace(const ScopedTrace&) = delete;
    ScopedTrace& operator=(const ScopedTrace&) = delete;

private:
    bool mActive;
};

class FenceImp : public IFence {
public:
    explicit FenceImp(int fd) : mFd(fd) {
        if (fd < 0) return;
        FileInfo info(sync_file_info(fd));
        if (info != nullptr) mName.setTo(info->name, strnlen(info->name, sizeof(info->name)));
    }

    ~FenceImp() override {
        if (mFd != -1) {
            close(mFd);
            mFd = -1;
        }
    }

    int dup() const override { return ::dup(mFd); }

    int wait(int timeout) override {
        ScopedTrace trace("wait");
        if (!isValid()) return 0;
        return sync_wait(mFd, timeout) == 0 ? 0 : -errno;
    }

    int waitForever(const char* logname) override {
        ScopedTrace trace("waitForever");
        if (!isValid()) return 0;
        if (sync_wait(mFd, kBoundedWaitMs) == 0) return 0;
        if (errno != ETIME) return -errno;
        CAM_ULOGW(kTag, "[%s] %s: fence %d didn't signal in %u ms", __func__,
                  logname != nullptr ? logname : "", mFd, kBoundedWaitMs);
        return sync_wait(mFd, -1) == 0 ? 0 : -errno;
    }

    const char* name() const override { return mName.c_str(); }

    bool isValid() const override { return mFd != -1; }

    int getFd() const override { return mFd; }

    int64_t getSignalTime() const override {
        if (!isValid()) return -1;
        FileInfo info(sync_file_info(mFd));
        if (info == nullptr) {
            CAM_ULOGE(kTag, "[%s] sync_fence_info returned NULL for fd %d", __func__, mFd);
            return -1;
        }
        if (info->status != 1) return INT64_MAX;
        const struct sync_fence_info* records = sync_get_fence_info(info.get());
        uint64_t latest = 0;
        for (uint32_t i = 0; i < info->num_fences; ++i)
            if (records[i].timestamp_ns > latest) latest = records[i].timestamp_ns;
        return static_cast<int64_t>(latest);
    }

private:
    int32_t mFd;
    android::String8 mName;
};

// The one way a descriptor becomes a fence. Should memory run out the descriptor is still
// closed, as the caller handed it over.
android::sp<IFence> adopt(int fd) {
    IFence* fence = new (std::nothrow) FenceImp(fd);
    if (fence == nullptr) {
        CAM_ULOGE(kTag, "[%s] out of memory for fd %d", __func__, fd);
        if (fd >= 0) close(fd);
        return IFence::NO_FENCE;
    }
    return fence;
}

bool validFence(const android::sp<IFence>& f) {
    return f != nullptr && f->isValid();
}

int fdOf(const android::sp<IFence>& f) {
    return f != nullptr ? f->getFd() : -1;
}

}  // namespace

ZORCAM_INIT_SYNC const android::sp<IFence> IFence::NO_FENCE(new FenceImp(-1));

android::sp<IFence> IFence::create(int fd) {
    return adopt(fd);
}

android::sp<IFence> IFence::merge(const char* name, const android::sp<IFence>& f1,
                                  const android::sp<IFence>& f2) {
    ScopedTrace trace("merge");
    int fd;
    if (validFence(f1) && validFence(f2)) fd = sync_merge(name, f1->getFd(), f2->getFd());
    else if (validFence(f1)) fd = sync_merge(name, f1->getFd(), f1->getFd());
    else if (validFence(f2)) fd = sync_merge(name, f2->getFd(), f2->getFd());
    else return NO_FENCE;
    if (fd == -1) {
        CAM_ULOGE(kTag, "[%s] Error merge: sync_merge(\"%s\", %d, %d)", __func__,
                  name != nullptr ? name : "", fdOf(f1), fdOf(f2));
        return NO_FENCE;
    }
    return adopt(fd);
}

android::sp<ITimeline> ITimeline::create(const char* /*name*/) {
    CAM_ULOGE(kTag, "[%s] sw_sync_timeline_create is no longer available ", __func__);
    return nullptr;
}

}  // namespace Sync
}  // namespace Utils
}  // namespace NSCam
