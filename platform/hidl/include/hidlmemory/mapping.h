#pragma once

#include <android/hidl/memory/1.0/IMemory.h>
#include <hidl/HidlSupport.h>

#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

/// Maps an "ashmem" block read-write into this process; null when the block has another
/// kind, no descriptor, size 0, or cannot be mapped. The mapping ends with the last reference
/// to the IMemory; the block's handle is not kept.
sp<hidl::memory::V1_0::IMemory> mapMemory(const hidl_memory& memory);

}  // namespace hardware
}  // namespace android
