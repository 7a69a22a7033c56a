#pragma once

// Root of every HIDL interface: reference counted through android::sp.

#include <utils/RefBase.h>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    static constexpr const char* descriptor = "android.hidl.base@1.0::IBase";
    ~IBase() override = default;
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
