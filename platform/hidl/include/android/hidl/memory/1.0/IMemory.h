#pragma once

// A shared-memory block mapped into this process (android.hidl.memory@1.0::IMemory).
// update()/read() open the block for writing/reading, commit() ends the access; getPointer()
// is valid while the IMemory lives.

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>

#include <cstdint>

namespace android {
namespace hidl {
namespace memory {
namespace V1_0 {

struct IMemory : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor = "android.hidl.memory@1.0::IMemory";

    virtual ::android::hardware::Return<void> update() = 0;
    virtual ::android::hardware::Return<void> updateRange(uint64_t start, uint64_t length) = 0;
    virtual ::android::hardware::Return<void> read() = 0;
    virtual ::android::hardware::Return<void> readRange(uint64_t start, uint64_t length) = 0;
    virtual ::android::hardware::Return<void> commit() = 0;
    virtual ::android::hardware::Return<void*> getPointer() = 0;
    virtual ::android::hardware::Return<uint64_t> getSize() = 0;
};

}  // namespace V1_0
}  // namespace memory
}  // namespace hidl
}  // namespace android
