// Misc: the log front end's process state and entry points, and the assorted utilities of
// NSCam::Utils (files, dumps, thread priority, lock helpers, fault reports).

#include <zorcam/utils/std/Misc.h>

#include "LogMacros.h"

#include <android-base/unique_fd.h>
#include <android/hidl/allocator/1.0/IAllocator.h>
#include <android/hidl/memory/1.0/IMemory.h>
#include <cutils/native_handle.h>
#include <cutils/properties.h>
#include <hidl/HidlSupport.h>
#include <hidlmemory/mapping.h>
#include <kfdv/kfe.h>
#include <stavex/UnwindBT.h>
#include <utils/String8.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/ICamDump.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

namespace NSCam {
namespace Utils {
namespace ULog {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;

// The camera log level, read once when the library is loaded and never written afterwards.
struct CameraLogLevel {
    int32_t mLevel;
    CameraLogLevel() : mLevel(load()) {}

    static int32_t load() {
        const int32_t value = property_get_int32("persist.vendor.zor.camera.log_level", -1);
        CAM_ULOGD(kTag, "[%s] ###### get camera log property =%d", __func__, value);
        // Unset: errors, warnings and info lines of the property-gated path are written.
        return value == -1 ? 2 : value;
    }
};

ZORCAM_INIT_MISC CameraLogLevel sCameraLogLevel;

}  // namespace

int32_t cameraLogLevel() {
    return sCameraLogLevel.mLevel;
}

int64_t formatMessage(char (&buffer)[kMessageBufferSize], const char* fmt, va_list ap) {
    const int n = vsnprintf(buffer, kMessageBufferSize, fmt, ap);
    buffer[kMessageBufferSize - 1] = '\0';
    if (n < 0) {
        buffer[0] = '\0';
        return 0;
    }
    return n < static_cast<int>(kMessageBufferSize) ? n : kMessageBufferSize - 1;
}

void writeUnified(const char* tag, DetailsType type, const char* fmt, ...) {
    char buffer[kMessageBufferSize];
    va_list ap;
    va_start(ap, fmt);
    const int64_t length = formatMessage(buffer, fmt, ap);
    va_end(ap);
    loadLogger()->logText(kUtilsModuleId, tag, type, buffer, length);
}

}  // namespace ULog

// ---- Directories and plain files

namespace {

// Makes one directory; true when path is (or has just become) a directory.
bool do_mkdir(char const* path, unsigned int mode) {
    struct stat st;
    if (stat(path, &st) == 0) {
        if (S_ISDIR(st.st_mode)) return true;
        CAM_ULOGE(ULog::kTag, "[%s] !S_ISDIR", __func__);
        return false;
    }
    if (mkdir(path, mode) == 0) return true;
    const int err = errno;
    // Made by another thread or process since the stat: as good as made here.
    if (err == EEXIST) return true;
    CAM_ULOGE(ULog::kTag, "[%s] fail to mkdir [%s]: %d[%s]", __func__, path, err, strerror(err));
    return false;
}

}  // namespace

bool makePath(char const* path, unsigned int mode) {
    if (path == nullptr) {
        CAM_ULOGE(ULog::kTag, "[%s] no path given", __func__);
        return false;
    }
    std::unique_ptr<char, decltype(&free)> copy(strdup(path), &free);
    if (copy == nullptr) return false;
    char* pos = copy.get();
    while (char* slash = strchr(pos, '/')) {
        // A leading slash, or the second of two adjacent ones, ends no component.
        if (slash != pos) {
            *slash = '\0';
            const bool made = do_mkdir(copy.get(), mode);
            *slash = '/';
            if (!made) return false;
        }
        pos = slash + 1;
    }
    return do_mkdir(path, mode);
}

bool saveBufToFile(char const* fname, unsigned char* buf, unsigned int size) {
    if (fname == nullptr) {
        CAM_ULOGE(ULog::kTag, "[%s] no file name given", __func__);
        return false;
    }
    CAM_ULOGD(ULog::kTag, "[%s] opening file [%s]", __func__, fname);
    android::base::unique_fd fd(open(fname, O_RDWR | O_CREAT | O_TRUNC, 0704));
    if (fd < 0) {
        CAM_ULOGE(ULog::kTag, "[%s] failed to create file [%s]: %s", __func__, fname,
                  strerror(errno));
        return false;
    }
    CAM_ULOGD(ULog::kTag, "[%s] writing %d bytes to file [%s]", __func__, size, fname);
    uint64_t written = 0;
    int passes = 0;
    while (written < size) {
        const ssize_t n = write(fd, buf + written, size - written);
        if (n < 0) {
            CAM_ULOGE(ULog::kTag, "[%s] failed to write to file [%s]: %s", __func__, fname,
                      strerror(errno));
            break;
        }
        if (n == 0) {
            // No error and no progress: another pass would spin for ever.
            CAM_ULOGE(ULog::kTag, "[%s] no progress writing to file [%s] after %" PRIu64 " bytes",
                      __func__, fname, written);
            break;
        }
        written += static_cast<uint64_t>(n);
        ++passes;
    }
    CAM_ULOGD(ULog::kTag, "[%s] done writing %d bytes to file [%s] in %d passes", __func__, size,
              fname, passes);
    return true;
}

unsigned int loadFileToBuf(char const* fname, unsigned char* buf, unsigned int size) {
    if (fname == nullptr) {
        CAM_ULOGE(ULog::kTag, "[%s] no file name given", __func__);
        return 0;
    }
    CAM_ULOGD(ULog::kTag, "[%s] opening file [%s]", __func__, fname);
    android::base::unique_fd fd(open(fname, O_RDONLY));
    if (fd < 0) {
        CAM_ULOGE(ULog::kTag, "[%s] failed to create file [%s]: %s", __func__, fname,
                  strerror(errno));
        return 0;
    }
    if (size == 0) {
        // Only the low 32 bits of the length count; one that is negative in 32 bits, and a
        // failed seek (-1), reads as an empty file.
        const int32_t length = static_cast<int32_t>(lseek(fd, 0, SEEK_END));
        size = length < 0 ? 0 : static_cast<unsigned int>(length);
        lseek(fd, 0, SEEK_SET);
    }
    CAM_ULOGD(ULog::kTag, "[%s] read %d bytes from file [%s]", __func__, size, fname);
    uint64_t done = 0;
    int passes = 0;
    while (done < size) {
        const ssize_t n = read(fd, buf + done, size - done);
        if (n < 0) {
            CAM_ULOGE(ULog::kTag, "[%s] failed to read from file [%s]: %s", __func__, fname,
                      strerror(errno));
            break;
        }
        if (n == 0) {
            CAM_ULOGD(ULog::kTag, "[%s] end of file [%s] after %" PRIu64 " bytes", __func__,
                      fname, done);
            break;
        }
        done += static_cast<uint64_t>(n);
        ++passes;
    }
    CAM_ULOGD(ULog::kTag, "[%s] done reading %d bytes to file [%s] in %d passes", __func__, size,
              fname, passes);
    return static_cast<unsigned int>(done);
}


// ---- Dump through the camera-dump service

bool saveBufToSDFile(char const* fname, unsigned char* buf, unsigned int size) {
    using ::android::sp;
    using ::android::hardware::hidl_handle;
    using ::android::hardware::hidl_memory;
    using ::android::hardware::hidl_string;
    using ::android::hidl::allocator::V1_0::IAllocator;
    using ::android::hidl::memory::V1_0::IMemory;
    using ::vendor::velmora::hardware::camera::camdump::V1_0::ICamDump;

    if (buf == nullptr || size == 0) {
        CAM_PLOGE(ULog::kTag, "Illegel Para: pBuf=%p, size=%zu", buf, static_cast<size_t>(size));
    }
    sp<ICamDump> service = ICamDump::tryGetService("internal/0", false);
    if (service == nullptr) {
        CAM_ULOGE(ULog::kTag, "[%s] CamDump: tryGetService() failed!", __func__);
        return false;
    }
    if (fname == nullptr) {
        CAM_ULOGE(ULog::kTag, "[%s] no file name given", __func__);
        return true;
    }

    // The service writes only below these two trees.
    std::string path(fname);
    if (path.compare(0, 20, "/data/engineercamera") != 0 && path.compare(0, 7, "/sdcard") != 0) {
        CAM_ULOGW(ULog::kTag, "[%s] force change path %s to SD path", __func__, fname);
        const size_t slash = path.rfind('/');
        path = slash == std::string::npos ? "/sdcard" : "/sdcard" + path.substr(slash);
    }
    CAM_ULOGD(ULog::kTag, "[%s] save to %s", __func__, path.c_str());
    CAM_ULOGD(ULog::kTag, "[%s] CamDump: IAllocator::allocate start", __func__);

    auto dump = [](const std::string& dumpPath, const unsigned char* src, uint64_t bytes,
                   const sp<ICamDump>& camDump) {
        if (src == nullptr || bytes == 0) {
            CAM_PLOGE(ULog::kTag, "Illegel Para: pBuf=%p, size=%zu", src,
                      static_cast<size_t>(bytes));
            return;
        }
        // Declared in release order, last first: mapping, block, handle, allocator.
        sp<IAllocator> allocator = IAllocator::getService("ashmem", false);
        if (allocator == nullptr) {
            CAM_PLOGE(ULog::kTag, "CamDump %s: IAllocator::getService() failed!", __func__);
            return;
        }
        CAM_PLOGD(ULog::kTag, "CamDump: IAllocator::allocate start");
        hidl_handle handle;
        hidl_memory memory;
        // The allocator's block lives only for the callback; the call keeps a clone of its
        // handle, owned (closed and deleted) by `handle`.
        const auto allocated = allocator->allocate(
                bytes, [&](bool success, const hidl_memory& mem) {
                    if (!success) {
                        CAM_PLOGE(ULog::kTag, "CamDump %s: allocating ashmem of %zu bytes failed!",
                                  __func__, static_cast<size_t>(bytes));
                        return;
                    }
                    if (mem.handle() != nullptr)
                        handle.setTo(native_handle_clone(mem.handle()), true);
                    if (handle.getNativeHandle() == nullptr) {
                        CAM_PLOGE(ULog::kTag, "CamDump %s: cloning the ashmem handle failed!",
                                  __func__);
                        return;
                    }
                    memory = hidl_memory("ashmem", handle, bytes);
                });
        // A transport failure surfaces as a block left empty; checking the result keeps an
        // unchecked failure from aborting the process.
        (void)allocated.isOk();
        CAM_PLOGD(ULog::kTag, "CamDump: IAllocator::allocate success");
        sp<IMemory> mapped = ::android::hardware::mapMemory(memory);
        if (mapped != nullptr) {
            mapped->update();
            void* dst = mapped->getPointer();
            const uint64_t mappedSize = mapped->getSize();
            if (dst != nullptr && mappedSize >= bytes) {
                memcpy(dst, src, bytes);
                CAM_PLOGD(ULog::kTag, "CamDump: read buffer to HidlMemory size=%d",
                          static_cast<int>(bytes));
            }
            mapped->commit();
        }
        const auto dumped = camDump->dumpBuffer(hidl_string(dumpPath), memory);
        (void)dumped.isOk();
    };
    dump(path, buf, size, service);
    return true;
}


// ---- Thread priority

bool setThreadPriority(int policy, int priority) {
    // pid 0 and PRIO_PROCESS who 0 name the calling thread on Linux, not the whole process.
    // The kernel's answers are deliberately not examined: a refused change keeps the thread's
    // scheduling as it was, and callers only ever get true.
    sched_param param{};
    if (policy != SCHED_OTHER) {
        param.sched_priority = priority;
        sched_setscheduler(0, policy, &param);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(Real-Time:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    } else {
        sched_setscheduler(0, SCHED_OTHER, &param);
        setpriority(PRIO_PROCESS, 0, priority);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(SCHED_OTHER:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    }
    return true;
}

bool getThreadPriority(int& policy, int& priority) {
    policy = sched_getscheduler(0);
    if (policy != SCHED_OTHER) {
        // A failed read (-1) is reported like a real-time policy, with whatever
        // sched_getparam yields (0 when it fails too).
        sched_param param{};
        sched_getparam(0, &param);
        priority = param.sched_priority;
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(Real-Time:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    } else {
        priority = getpriority(PRIO_PROCESS, 0);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(SCHED_OTHER:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    }
    return true;
}

// ---- Lock helpers

template <typename MutexType>
bool lockNoexcept(std::unique_lock<MutexType>& /*lk*/) noexcept {
    return false;
}

template bool lockNoexcept<std::mutex>(std::unique_lock<std::mutex>& lk) noexcept;
template bool lockNoexcept<android::Mutex>(std::unique_lock<android::Mutex>& lk) noexcept;

// ---- Fault reports and call stacks

namespace {

// What the exception-report service collects with each report; passed through unchanged.
constexpr unsigned int kKfeFlags = 0x10802C05;

android::String8 formatKfeMessage(const char* format, va_list ap) {
    return format != nullptr ? android::String8::formatV(format, ap) : android::String8();
}

}  // namespace

int triggerKfeWarning(char const* module, char const* /*unused*/, char const* format, ...) {
    va_list ap;
    va_start(ap, format);
    const android::String8 message = formatKfeMessage(format, ap);
    va_end(ap);
    const int ret = kfe_system_warning(module, nullptr, kKfeFlags, message.c_str());
    CAM_ULOGD(ULog::kTag, "[%s] ret:%d", __func__, ret);
    return 0;
}

int triggerKfeException(char const* module, char const* /*unused*/, char const* format, ...) {
    va_list ap;
    va_start(ap, format);
    const android::String8 message = formatKfeMessage(format, ap);
    va_end(ap);
    const int ret = kfe_system_exception(module, nullptr, kKfeFlags, message.c_str());
    CAM_ULOGD(ULog::kTag, "[%s] ret:%d", __func__, ret);
    return 0;
}

void dumpCallStack(char const* suffix) {
    try {
        std::string backtrace;
        UnwindCurThreadBT(backtrace);
        std::string tag(ULog::kTag);
        if (suffix != nullptr) {
            tag += '/';
            tag += suffix;
        }
        // The stack goes straight to the Android log as one entry, past the front end's gates,
        // so it is there whatever the unified logger is set to.
        __android_log_write(ANDROID_LOG_INFO, tag.c_str(), backtrace.c_str());
    } catch (const std::exception& e) {
        CAM_ULOGE(ULog::kTag, "[%s] cannot dump the call stack: %s", __func__, e.what());
    }
}

}  // namespace Utils
}  // namespace NSCam

extern "C" int zorcam_testLog(const char* /*tag*/, int level) {
    const int32_t camLevel = NSCam::Utils::ULog::cameraLogLevel();
    switch (level) {
        case 'E': return 1;
        case 'W': return camLevel > 0;
        case 'I': return camLevel > 1;
        case 'D': return camLevel > 2;
        case 'V': return camLevel > 3;
        default: return 0;
    }
}

extern "C" void setLogLevelToEngLoad(void) {}
