#pragma once

// The host's service registry, standing in for hwservicemanager: one process-wide table of
// services by interface descriptor and instance name. Interfaces register themselves with
// registerAsService(instance) and are found with getService/tryGetService; a program or test
// may also remove an instance. From the start, the table holds the ashmem allocator
// (android.hidl.allocator@1.0::IAllocator, instance "ashmem"). Thread-safe.

#include <android/hidl/base/1.0/IBase.h>

#include <utils/StrongPointer.h>

#include <string>

namespace android {
namespace hardware {
namespace host {

/// Registers service under (descriptor, instance), replacing any earlier one.
void registerService(const std::string& descriptor, const std::string& instance,
                     const sp<hidl::base::V1_0::IBase>& service);

/// Removes (descriptor, instance); look-ups then find nothing until it is registered again.
void unregisterService(const std::string& descriptor, const std::string& instance);

/// The service registered under (descriptor, instance), or null.
sp<hidl::base::V1_0::IBase> lookupService(const std::string& descriptor,
                                          const std::string& instance);

/// lookupService, typed: null when nothing (or something of another type) is registered.
template <typename I>
sp<I> lookupServiceAs(const std::string& instance) {
    sp<hidl::base::V1_0::IBase> base = lookupService(I::descriptor, instance);
    return sp<I>(dynamic_cast<I*>(base.get()));
}

}  // namespace host
}  // namespace hardware
}  // namespace android
