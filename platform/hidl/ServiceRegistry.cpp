// The process-wide service table and the interfaces' getService/registerAsService, which on a
// device go to hwservicemanager.

#include <hidl/HostServiceRegistry.h>

#include <android/hidl/allocator/1.0/IAllocator.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/ICamDump.h>

#include "Ashmem.h"

#include <map>
#include <mutex>
#include <utility>

namespace android {
namespace hardware {
namespace host {

namespace {

using hidl::base::V1_0::IBase;
using Key = std::pair<std::string, std::string>;

struct Registry {
    std::mutex mLock;
    std::map<Key, sp<IBase>> mServices;
};

Registry& registry() {
    // Never destroyed: services may be looked up from other objects' destructors at exit.
    static Registry* sRegistry = [] {
        auto* r = new Registry();
        r->mServices[{hidl::allocator::V1_0::IAllocator::descriptor, "ashmem"}] =
                createAshmemAllocator();
        return r;
    }();
    return *sRegistry;
}

}  // namespace

void registerService(const std::string& descriptor, const std::string& instance,
                     const sp<IBase>& service) {
    Registry& r = registry();
    sp<IBase> previous;  // released outside the lock: its destructor may use the registry
    std::lock_guard<std::mutex> lock(r.mLock);
    sp<IBase>& slot = r.mServices[{descriptor, instance}];
    previous = slot;
    slot = service;
}

void unregisterService(const std::string& descriptor, const std::string& instance) {
    Registry& r = registry();
    sp<IBase> previous;
    std::lock_guard<std::mutex> lock(r.mLock);
    auto it = r.mServices.find({descriptor, instance});
    if (it == r.mServices.end()) return;
    previous = it->second;
    r.mServices.erase(it);
}

sp<IBase> lookupService(const std::string& descriptor, const std::string& instance) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mLock);
    auto it = r.mServices.find({descriptor, instance});
    return it == r.mServices.end() ? nullptr : it->second;
}

}  // namespace host
}  // namespace hardware
}  // namespace android

namespace android {
namespace hidl {
namespace allocator {
namespace V1_0 {

sp<IAllocator> IAllocator::getService(const std::string& serviceName, bool /*getStub*/) {
    return hardware::host::lookupServiceAs<IAllocator>(serviceName);
}

sp<IAllocator> IAllocator::tryGetService(const std::string& serviceName, bool /*getStub*/) {
    return hardware::host::lookupServiceAs<IAllocator>(serviceName);
}

status_t IAllocator::registerAsService(const std::string& serviceName) {
    hardware::host::registerService(descriptor, serviceName, this);
    return OK;
}

}  // namespace V1_0
}  // namespace allocator
}  // namespace hidl
}  // namespace android

namespace vendor {
namespace velmora {
namespace hardware {
namespace camera {
namespace camdump {
namespace V1_0 {

::android::sp<ICamDump> ICamDump::getService(const std::string& serviceName,
                                             bool /*getStub*/) {
    return ::android::hardware::host::lookupServiceAs<ICamDump>(serviceName);
}

::android::sp<ICamDump> ICamDump::tryGetService(const std::string& serviceName,
                                                bool /*getStub*/) {
    return ::android::hardware::host::lookupServiceAs<ICamDump>(serviceName);
}

::android::status_t ICamDump::registerAsService(const std::string& serviceName) {
    ::android::hardware::host::registerService(descriptor, serviceName, this);
    return ::android::OK;
}

}  // namespace V1_0
}  // namespace camdump
}  // namespace camera
}  // namespace hardware
}  // namespace velmora
}  // namespace vendor
