#pragma once

// The vendor camera-dump service (vendor.velmora.hardware.camera.camdump@1.0::ICamDump): it
// writes shared-memory blocks to files on behalf of camera processes.

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>

#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <string>

namespace vendor {
namespace velmora {
namespace hardware {
namespace camera {
namespace camdump {
namespace V1_0 {

struct ICamDump : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
            "vendor.velmora.hardware.camera.camdump@1.0::ICamDump";

    /// Writes the whole block (buffer.size() bytes) to the file at path. The block is the
    /// caller's: the service maps it for the call and keeps nothing.
    virtual ::android::hardware::Return<void> dumpBuffer(
            const ::android::hardware::hidl_string& path,
            const ::android::hardware::hidl_memory& buffer) = 0;

    static ::android::sp<ICamDump> getService(const std::string& serviceName = "default",
                                              bool getStub = false);
    static ::android::sp<ICamDump> tryGetService(const std::string& serviceName = "default",
                                                 bool getStub = false);
    ::android::status_t registerAsService(const std::string& serviceName = "default");
};

}  // namespace V1_0
}  // namespace camdump
}  // namespace camera
}  // namespace hardware
}  // namespace velmora
}  // namespace vendor
