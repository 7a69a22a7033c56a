// Property: the process-wide key/value store, an android::PropertyMap under a reader-writer
// lock.

#include <zorcam/utils/std/Property.h>

#include "LogMacros.h"

#include <utils/PropertyMap.h>
#include <utils/RWLock.h>

#include <unistd.h>

namespace NSCam {
namespace Utils {
namespace Property {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;

// Built at load, the lock before the map, and destroyed at exit in the reverse order, so the
// map never outlives the lock that guards it. Each sits on a cache line of its own: every
// reader writes the lock's reader count, and readers on other cores should not lose the map's
// header to it.
constexpr size_t kCacheLine = 64;
alignas(kCacheLine) ZORCAM_INIT_PROPERTY android::RWLock gPropertyMapLock;
alignas(kCacheLine) ZORCAM_INIT_PROPERTY android::PropertyMap gPropertyMap;

}  // namespace

// Writers log while they still hold the exclusive lock, so the lines come out in the order of
// the changes they describe.

void clear() {
    android::RWLock::AutoWLock lock(gPropertyMapLock);
    gPropertyMap.clear();
    CAM_ULOGD(kTag, "[%s] pid/tid=%d/%d", __func__, getpid(), gettid());
}

void set(const android::String8& key, const android::String8& value) {
    android::RWLock::AutoWLock lock(gPropertyMapLock);
    gPropertyMap.addProperty(key, value);
    CAM_ULOGD(kTag, "[%s] pid/tid=%d/%d (%s)=(%s)", __func__, getpid(), gettid(), key.c_str(),
              value.c_str());
}

bool hasKey(const android::String8& key) {
    android::RWLock::AutoRLock lock(gPropertyMapLock);
    return gPropertyMap.hasProperty(key);
}

bool tryGet(const android::String8& key, android::String8& value) {
    android::RWLock::AutoRLock lock(gPropertyMapLock);
    return gPropertyMap.tryGetProperty(key, value);
}

bool tryGet(const android::String8& key, bool& value) {
    android::RWLock::AutoRLock lock(gPropertyMapLock);
    return gPropertyMap.tryGetProperty(key, value);
}

bool tryGet(const android::String8& key, int& value) {
    android::RWLock::AutoRLock lock(gPropertyMapLock);
    return gPropertyMap.tryGetProperty(key, value);
}

bool tryGet(const android::String8& key, float& value) {
    android::RWLock::AutoRLock lock(gPropertyMapLock);
    return gPropertyMap.tryGetProperty(key, value);
}

}  // namespace Property
}  // namespace Utils
}  // namespace NSCam
