// The host's camera-dump service: maps the block it is given and writes it to a file under
// its root directory.

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <hidlmemory/mapping.h>
#include <unistd.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

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

// The path's components, empty ones and "." left out.
std::vector<std::string> componentsOf(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        std::string part = path.substr(start, end - start);
        if (!part.empty() && part != ".") parts.push_back(std::move(part));
        start = end + 1;
    }
    return parts;
}

// Opens (making it when missing) the directory `name` inside `dir`, never through a symbolic
// link, so that nothing under the root can lead a dump out of it. -1 with errno on failure.
int openSubdirectory(int dir, const char* name) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int fd = openat(dir, name, kFlags);
    if (fd < 0 && errno == ENOENT) {
        if (mkdirat(dir, name, 0777) != 0 && errno != EEXIST) return -1;
        fd = openat(dir, name, kFlags);
    }
    return fd;
}

}  // namespace

HostCamDump::HostCamDump(std::string root) : mRoot(std::move(root)) {}

Return<void> HostCamDump::dumpBuffer(const hidl_string& path, const hidl_memory& buffer) {
    const std::string requested = path;
    const std::vector<std::string> parts = componentsOf(requested);
    // The path must name a file: no ".." anywhere, and no directory (a last component that is
    // empty or ".").
    const std::string last = requested.substr(requested.rfind('/') + 1);
    if (last.empty() || last == "." || std::find(parts.begin(), parts.end(), "..") != parts.end()) {
        fprintf(stderr, "camdump: refused path \"%s\"\n", requested.c_str());
        return Void();
    }
    sp<IMemory> memory = ::android::hardware::mapMemory(buffer);
    if (memory == nullptr) {
        fprintf(stderr, "camdump: cannot map the block for %s\n", requested.c_str());
        return Void();
    }
    // Walk down from the root one directory at a time; a symbolic link or a file on the way,
    // or as the file itself, refuses the path.
    android::base::unique_fd dir(open(mRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (size_t i = 0; dir.get() >= 0 && i + 1 < parts.size(); ++i)
        dir.reset(openSubdirectory(dir.get(), parts[i].c_str()));
    const int fd = dir.get() < 0
                           ? -1
                           : openat(dir.get(), parts.back().c_str(),
                                    O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0664);
    if (fd < 0) {
        fprintf(stderr, "camdump: cannot create %s under %s: %s\n", requested.c_str(),
                mRoot.c_str(), strerror(errno));
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
            fprintf(stderr, "camdump: cannot write %s: %s\n", requested.c_str(),
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
