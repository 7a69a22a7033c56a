#pragma once

// Shared-memory allocator (android.hidl.allocator@1.0::IAllocator). The host registers one
// instance, "ashmem", backed by memfd_create.

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>

#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <functional>
#include <string>

namespace android {
namespace hidl {
namespace allocator {
namespace V1_0 {

struct IAllocator : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor = "android.hidl.allocator@1.0::IAllocator";

    /// The block handed to the callback lives only for the callback: keep a clone of its
    /// handle to use the block afterwards.
    using allocate_cb =
            std::function<void(bool success, const ::android::hardware::hidl_memory& mem)>;
    virtual ::android::hardware::Return<void> allocate(uint64_t size, allocate_cb _hidl_cb) = 0;

    static ::android::sp<IAllocator> getService(const std::string& serviceName = "default",
                                                bool getStub = false);
    static ::android::sp<IAllocator> tryGetService(const std::string& serviceName = "default",
                                                   bool getStub = false);
    ::android::status_t registerAsService(const std::string& serviceName = "default");
};

}  // namespace V1_0
}  // namespace allocator
}  // namespace hidl
}  // namespace android
