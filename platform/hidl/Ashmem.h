#pragma once

#include <android/hidl/base/1.0/IBase.h>

#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace host {

/// The "ashmem" allocator that the registry holds from the start.
sp<hidl::base::V1_0::IBase> createAshmemAllocator();

}  // namespace host
}  // namespace hardware
}  // namespace android
