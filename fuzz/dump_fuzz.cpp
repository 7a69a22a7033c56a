// Dumps buffers through saveBufToSDFile and the host camera-dump service, and makes
// directories with makePath, for any path, under a temporary root that the input fills with
// symbolic links (into the root, out of it, to a file outside, dangling) and plain files:
// - nothing outside the root is ever created, changed or removed;
// - a dump either lands as a regular file under the root with the buffer's bytes, or the
//   service writes its "camdump: " line;
// - makePath succeeds exactly when the whole path is a directory afterwards (or a dangling
//   link, which mkdir finds existing), and a failure has its log line.

#include <android/hidl/allocator/1.0/IAllocator.h>
#include <cutils/native_handle.h>
#include <dirent.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <hidl/HidlSupport.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>
#include <zorcam/utils/std/Misc.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "FuzzLog.h"

namespace {

using android::hardware::hidl_memory;
using android::hardware::Return;
using android::hardware::Void;
using android::hidl::allocator::V1_0::IAllocator;
using vendor::velmora::hardware::camera::camdump::V1_0::ICamDump;
using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;

std::string gBase;  // the temporary directory, removed at exit and on failure

[[noreturn]] void fail(const char* what, const std::string& path) {
    fprintf(stderr, "dump_fuzz: %s (path \"%s\")\n", what, path.c_str());
    for (size_t i = 0; i < zorcam_fuzz::logCount(); ++i)
        fprintf(stderr, "  log: %s\n", zorcam_fuzz::logLine(i).text.c_str());
    abort();
}

constexpr size_t kMaxBuffer = 64;

// Every block is a duplicate of one memory file: the allocator is not what is fuzzed here, and
// a dump holds one block at a time, so they need not be apart.
class MemfdAllocator : public IAllocator {
public:
    Return<void> allocate(uint64_t size, allocate_cb cb) override {
        static const int sFile = [] {
            const int fd = memfd_create("dump_fuzz_block", MFD_CLOEXEC);
            if (fd < 0 || ftruncate(fd, kMaxBuffer) != 0) fail("cannot make the block file", "");
            return fd;
        }();
        const int fd = size <= kMaxBuffer ? fcntl(sFile, F_DUPFD_CLOEXEC, 0) : -1;
        native_handle_t* handle = native_handle_create(1, 0);
        if (fd < 0 || handle == nullptr) fail("cannot allocate a block", "");
        handle->data[0] = fd;
        cb(true, hidl_memory("ashmem", handle, size));
        native_handle_close(handle);
        native_handle_delete(handle);
        return Void();
    }
};

// The fixed places: BASE holds exactly ROOT and OUTSIDE; OUTSIDE holds exactly the file
// "victim" (with kVictim in it) and the empty directory "dir".
struct Places {
    std::string base, root, outside;
};

constexpr char kVictim[] = "outside the root";

const Places& places() {
    static const Places* sPlaces = [] {
        // tmpfs when there is one: directory operations on a disk cost a hundred times more.
        char pattern[] = "/dev/shm/zorcam_dump_fuzz.XXXXXX";
        char fallback[] = "/tmp/zorcam_dump_fuzz.XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) made = mkdtemp(fallback);
        if (made == nullptr) fail("no temporary directory", fallback);
        auto* p = new Places{made, std::string(made) + "/root", std::string(made) + "/outside"};
        mkdir(p->root.c_str(), 0700);
        mkdir(p->outside.c_str(), 0700);
        mkdir((p->outside + "/dir").c_str(), 0700);
        FILE* f = fopen((p->outside + "/victim").c_str(), "w");
        if (f == nullptr) fail("cannot make the victim", p->outside);
        fputs(kVictim, f);
        fclose(f);
        gBase = p->base;
        atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(gBase, ec);
        });
        return p;
    }();
    return *sPlaces;
}

std::string contents(const std::string& path, int extraFlags = 0) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | extraFlags);
    if (fd < 0) return "<none>";
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    close(fd);
    return out;
}

// What tells a change outside the root: the times, sizes and link counts of the places there
// (a directory's times change with every entry made or removed in it).
struct Stamp {
    struct timespec mtime, ctime;
    off_t size;
    nlink_t links;
    bool operator==(const Stamp& o) const {
        return mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec &&
               ctime.tv_sec == o.ctime.tv_sec && ctime.tv_nsec == o.ctime.tv_nsec &&
               size == o.size && links == o.links;
    }
};

// The places are held open (O_PATH) and looked at with fstat, without a walk of their paths; a
// place removed or replaced changes its parent's times, or its own link count to 0.
std::vector<Stamp> stampOutside() {
    static const std::vector<int> sPlaces = [] {
        const Places& p = places();
        std::vector<int> fds;
        for (const std::string& path :
             {p.base, p.outside, p.outside + "/dir", p.outside + "/victim"}) {
            fds.push_back(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
            if (fds.back() < 0) fail("a place outside the root is gone", path);
        }
        return fds;
    }();
    std::vector<Stamp> out;
    for (int fd : sPlaces) {
        struct stat st {};
        if (fstat(fd, &st) != 0) fail("cannot look at a place outside the root", "");
        out.push_back({st.st_mtim, st.st_ctim, st.st_size, st.st_nlink});
    }
    return out;
}

// Times only move on, so one look after the input's last call tells a change by any of them;
// `paths` names them all.
void checkOutsideUntouched(const std::string& paths) {
    static const std::vector<Stamp> sBefore = stampOutside();
    if (stampOutside() != sBefore) fail("something outside the root changed", paths);
}

// Runs `call` with stderr going into a pipe, and returns what was written there. Sanitizer
// reports keep going to the real stderr meanwhile. (A call writes a line or two: far below
// what the pipe holds.)
template <typename Call>
std::string captureStderr(Call&& call) {
    struct Pipe {
        int realStderr = dup(2), ends[2] = {-1, -1};
        Pipe() {
            __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(realStderr)));
            if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) fail("no pipe", "");
        }
    };
    static const Pipe sPipe;
    fflush(stderr);
    dup2(sPipe.ends[1], 2);
    call();
    fflush(stderr);
    dup2(sPipe.realStderr, 2);
    std::string out;
    char buf[512];
    ssize_t n;
    while ((n = read(sPipe.ends[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    return out;
}

// Removes everything inside the directory `dir` (a descriptor) but the entry `keep`, never
// following a link. The entries are read with getdents64 into the stack: a DIR stream would
// cost a large buffer and a duplicate descriptor for each directory.
void emptyDirectory(int dir, const char* keep = nullptr) {
    alignas(dirent64) char buf[4096];
    ssize_t n;
    while ((n = getdents64(dir, buf, sizeof(buf))) > 0) {
        for (ssize_t at = 0; at < n;) {
            const auto* e = reinterpret_cast<const dirent64*>(buf + at);
            at += e->d_reclen;
            if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
            struct stat st {};
            const bool isDir = e->d_type == DT_UNKNOWN
                                       ? fstatat(dir, e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                                                 S_ISDIR(st.st_mode)
                                       : e->d_type == DT_DIR;
            if (isDir) {
                const int sub =
                        openat(dir, e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                const bool kept = keep != nullptr && strcmp(e->d_name, keep) == 0;
                if (sub >= 0) {
                    emptyDirectory(sub);
                    close(sub);
                }
                if (!kept) unlinkat(dir, e->d_name, AT_REMOVEDIR);
            } else {
                unlinkat(dir, e->d_name, 0);
            }
        }
    }
    if (n < 0) fail("cannot list a directory in the root", "");
}

const char* const kParts[] = {"sdcard", "data", "engineercamera", "..",     ".",  "",
                              "a",      "b",    "x.yuv",          "link",   "up", "out",
                              "file",   "deep", "victim",         "sdcardX"};

// A path of the vocabulary's parts (most of the time) or any text.
std::string pickPath(FuzzedDataProvider& in) {
    if (in.ConsumeIntegralInRange<int>(0, 7) == 0) return in.ConsumeRandomLengthString(64).c_str();
    std::string path;
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
            path = "/sdcard";
            break;
        case 1:
            path = "/data/engineercamera";
            break;
        case 2:
            path = "";
            break;
        default:
            path = "/data/vendor";
    }
    const int parts = in.ConsumeIntegralInRange<int>(0, 5);
    for (int i = 0; i < parts; ++i) path += "/" + std::string(in.PickValueInArray(kParts));
    if (in.ConsumeBool()) path += "/" + std::string(in.ConsumeRandomLengthString(12).c_str());
    return path;
}

// A name for something made in the root: a part of the vocabulary that names an entry.
std::string entryName(FuzzedDataProvider& in) {
    const std::string name = in.PickValueInArray(kParts);
    return name.empty() || name == "." || name == ".." ? "a" : name;
}

// Fills `base` with what the input asks: directories, plain files and symbolic links, which
// lead anywhere, or (`inside`) only to places within the root that hold no links themselves.
void populate(FuzzedDataProvider& in, const std::string& base, bool inside) {
    static const std::vector<std::string> sAnywhere = [] {
        const Places& p = places();
        return std::vector<std::string>{
                p.outside, p.outside + "/victim", p.outside + "/dir", "../outside", "..", "../..",
                "/",       "nowhere",             p.root + "/a",      p.root + "/sdcard"};
    }();
    static const std::vector<std::string> sWithin = [] {
        const std::string mk = places().root + "/mk";
        return std::vector<std::string>{"nowhere", "a", ".", mk + "/a", mk + "/b/file"};
    }();
    const std::vector<std::string>& targets = inside ? sWithin : sAnywhere;
    const int n = in.ConsumeIntegralInRange<int>(0, 6);
    for (int i = 0; i < n; ++i) {
        std::string at = base;
        const int depth = in.ConsumeIntegralInRange<int>(0, 2);
        bool real = true;  // only through real directories: the input's links are for the library
        for (int d = 0; d < depth && real; ++d) {
            at += "/" + entryName(in);
            struct stat st {};
            real = mkdir(at.c_str(), 0700) == 0 ||
                   (lstat(at.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
        }
        if (!real) continue;
        const std::string name = at + "/" + entryName(in);
        switch (in.ConsumeIntegralInRange<int>(0, 2)) {
            case 0:
                mkdir(name.c_str(), 0700);
                break;
            case 1:
                close(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
                break;
            default:
                symlink(targets[in.ConsumeIntegralInRange<size_t>(0, targets.size() - 1)].c_str(),
                        name.c_str());
        }
    }
}

// Where the library sends a dump: the accepted trees keep the path, anything else is moved
// under /sdcard with its file name.
std::string rewritten(const std::string& path) {
    if (path.compare(0, 20, "/data/engineercamera") == 0 || path.compare(0, 7, "/sdcard") == 0)
        return path;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "/sdcard" : "/sdcard" + path.substr(slash);
}

// The input's paths, as fail() quotes them: "a" "b".
void addPath(std::string* paths, const std::string& path) {
    if (!paths->empty()) *paths += "\" \"";
    *paths += path;
}

void dump(FuzzedDataProvider& in, std::string* paths) {
    const std::string path = pickPath(in);
    addPath(paths, path);
    std::vector<unsigned char> buf =
            in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(1, kMaxBuffer));
    if (buf.empty()) buf.push_back(0x5A);
    bool sent = false;
    const std::string err = captureStderr([&] {
        sent = NSCam::Utils::saveBufToSDFile(path.c_str(), buf.data(),
                                             static_cast<unsigned>(buf.size()));
    });
    if (!sent) fail("dump service missing", path);
    if (err.find("camdump: ") != std::string::npos) return;  // refused, with its line
    // Written: a regular file at the path under the root, reached without links.
    const std::string target = places().root + "/" + rewritten(path);
    struct stat st {};
    if (lstat(target.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) fail("no line, yet no file", path);
    if (contents(target, O_NOFOLLOW) != std::string(buf.begin(), buf.end()))
        fail("the file does not hold the buffer", path);
}

void makePath(FuzzedDataProvider& in, std::string* paths) {
    // Under ROOT/mk, where the input's links lead only within the root; ".." stays out, since
    // a caller's ".." may rightly leave any directory.
    std::string rel = pickPath(in);
    for (size_t at; (at = rel.find("..")) != std::string::npos;) rel.replace(at, 2, "d");
    const std::string path = places().root + "/mk/" + rel;
    addPath(paths, path);
    const unsigned mode = 0700 | in.ConsumeIntegralInRange<unsigned>(0, 0777);
    zorcam_fuzz::clearLog();
    const bool made = NSCam::Utils::makePath(path.c_str(), mode);
    struct stat st {};
    const bool isDir = stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    // mkdir's EEXIST counts as made (someone else made it meanwhile) without a second look, so
    // a dangling link as the last component passes too.
    std::string last = path;
    while (last.size() > 1 && last.back() == '/') last.pop_back();
    // (The link itself, without the trailing '/': a link to a file is not dangling; a loop
    // of links is.)
    const bool dangling = !isDir && stat(last.c_str(), &st) != 0 && lstat(last.c_str(), &st) == 0 &&
                          S_ISLNK(st.st_mode);
    if (made != (isDir || dangling))
        fail(made ? "made, yet not a directory" : "not made, yet a directory or dangling link",
             path);
    if (!made && !zorcam_fuzz::logContains("!S_ISDIR") &&
        !zorcam_fuzz::logContains("fail to mkdir"))
        fail("not made, without a line", path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const android::sp<ICamDump> sService = [] {
        android::sp<ICamDump> service = new HostCamDump(places().root);
        android::sp<IAllocator> allocator = new MemfdAllocator;
        if (service->registerAsService("internal/0") != android::OK ||
            allocator->registerAsService("ashmem") != android::OK)
            fail("cannot register the services", places().root);
        checkOutsideUntouched("");  // takes the first stamps
        return service;
    }();
    const Places& p = places();
    FuzzedDataProvider in(data, size);
    static const std::string sMk = [&] {
        mkdir((p.root + "/mk").c_str(), 0700);
        return p.root + "/mk";
    }();
    populate(in, p.root, false);
    populate(in, sMk, true);
    const int ops = in.ConsumeIntegralInRange<int>(1, 4);
    std::string paths;
    for (int i = 0; i < ops && in.remaining_bytes() > 0; ++i) {
        if (in.ConsumeBool())
            dump(in, &paths);
        else
            makePath(in, &paths);
    }
    checkOutsideUntouched(paths);
    // Start the next input from an empty root (but for the empty "mk"): links are removed,
    // never followed.
    static const int sRoot = open(p.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    lseek(sRoot, 0, SEEK_SET);
    emptyDirectory(sRoot, "mk");
    zorcam_fuzz::clearLog();
    return 0;
}
