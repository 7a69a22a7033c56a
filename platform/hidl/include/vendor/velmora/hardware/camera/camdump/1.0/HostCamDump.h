#pragma once

// A camera-dump service for a host: writes each block to the requested path placed under a
// root directory, so "/sdcard/x.yuv" lands in ROOT/sdcard/x.yuv, making directories as
// needed. Register it with registerAsService("internal/0"). It never leaves the root: paths
// with a ".." component or naming a directory, paths that meet a symbolic link or a file on
// the way (or end at a symbolic link), and blocks that cannot be mapped are refused with one
// "camdump: " line on stderr.

#include <vendor/velmora/hardware/camera/camdump/1.0/ICamDump.h>

#include <string>

namespace vendor {
namespace velmora {
namespace hardware {
namespace camera {
namespace camdump {
namespace V1_0 {
namespace implementation {

class HostCamDump : public ICamDump {
public:
    explicit HostCamDump(std::string root);

    ::android::hardware::Return<void> dumpBuffer(
            const ::android::hardware::hidl_string& path,
            const ::android::hardware::hidl_memory& buffer) override;

    const std::string& root() const { return mRoot; }

private:
    std::string mRoot;
};

}  // namespace implementation
}  // namespace V1_0
}  // namespace camdump
}  // namespace camera
}  // namespace hardware
}  // namespace velmora
}  // namespace vendor
