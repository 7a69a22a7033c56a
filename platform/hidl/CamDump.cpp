// The host's camera-dump service: maps the block it is given and writes it to a file under
// its root directory.

#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>

#include <hidlmemory/mapping.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vendor {
namespace velmora {
namespace hardware {
namespace camera {
namespace camdump {
namespace V1_0 {
namespace implementation {

using ::android::sp;
using ::android::hardware::hidl_memory;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::memory::V1_0::IMemory;

namespace {

bool climbsOut(const std::string& path) {
    for (const auto& part : std::filesystem::path(path))
        if (part == "..") return true;
    return false;
}

}  // namespace

HostCamDump::HostCamDump(std::string root) : mRoot(std::move(root)) {}

Return<void> HostCamDump::dumpBuffer(const hidl_string& path, const hidl_memory& buffer) {
    const std::string requested = path;
    if (requested.empty() || climbsOut(requested)) {
        fprintf(stderr, "camdump: refused path \"%s\"\n", requested.c_str());
        return Void();
    }
    sp<IMemory> memory = ::android::hardware::mapMemory(buffer);
    if (memory == nullptr) {
        fprintf(stderr, "camdump: cannot map the block for %s\n", requested.c_str());
        return Void();
    }
    const std::filesystem::path target =
            std::filesystem::path(mRoot) / std::filesystem::path(requested).relative_path();
    std::error_code ec;
    std::filesystem::create_directories(target.parent_path(), ec);
    const int fd = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664);
    if (fd < 0) {
        fprintf(stderr, "camdump: cannot create %s: %s\n", target.c_str(), strerror(errno));
        return Void();
    }
    memory->read();
    void* pointer = memory->getPointer();
    const auto* data = static_cast<const unsigned char*>(pointer);
    const uint64_t size = memory->getSize();
    uint64_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n <= 0) {
            if (n < 0 && errno == EINTR) continue;
            fprintf(stderr, "camdump: cannot write %s: %s\n", target.c_str(),
                    n < 0 ? strerror(errno) : "no progress");
            break;
        }
        done += static_cast<uint64_t>(n);
    }
    memory->commit();
    close(fd);
    return Void();
}

}  // namespace implementation
}  // namespace V1_0
}  // namespace camdump
}  // namespace camera
}  // namespace hardware
}  // namespace velmora
}  // namespace vendor
