// Dumps through the camera-dump service: saveBufToSDFile against the host service under a
// fresh root, with test allocators, and the host allocator's blocks and handles.

#include "ChildProcess.h"
#include "FdCount.h"
#include "LogCapture.h"
#include "TempDir.h"

#include <zorcam/utils/std/Log.h>
#include <zorcam/utils/std/Misc.h>

#include <android/hidl/allocator/1.0/IAllocator.h>
#include <hidl/HostServiceRegistry.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>

#include <sys/stat.h>
#include <unistd.h>


using namespace android;
using namespace android::hardware;
using namespace zorcam_test;
using android::hidl::allocator::V1_0::IAllocator;
using NSCam::Utils::saveBufToSDFile;
using vendor::velmora::hardware::camera::camdump::V1_0::ICamDump;
using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;
using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

// Records the sizes asked and answers as the real allocator does, with a block 4096 bytes
// larger than asked (as an allocator rounding up may), or refuses, or hands a block without a
// descriptor, which no one can map.
struct TestAllocator : public IAllocator {
    enum Mode { kPass, kRefuse, kNoDescriptor } mMode;
    explicit TestAllocator(Mode mode) : mMode(mode) {}
    Return<void> allocate(uint64_t size, allocate_cb cb) override {
        mSizes.push_back(size);
        if (mMode == kPass) return getService("real", false)->allocate(size + 4096, cb);
        native_handle_t* handle = native_handle_create(0, 0);
        cb(mMode != kRefuse,
           mMode == kRefuse ? hidl_memory() : hidl_memory("ashmem", handle, size));
        native_handle_delete(handle);
        return Void();
    }
    std::vector<uint64_t> mSizes;
};

// Descriptors and ashmem mappings (lines of /proc/self/maps).
static std::pair<int, int> resources() {
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);) n += line.find("ashmem") != line.npos;
    return {openFdCount(), n};
}

class CamDumpTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        host::registerService(IAllocator::descriptor, "real", mRealAllocator);
        ASSERT_EQ(mService->registerAsService("internal/0"), OK);
    }
    void TearDown() override {
        EXPECT_EQ(resources(), mResources) << "a descriptor or mapping was left behind";
        host::unregisterService(ICamDump::descriptor, "internal/0");
        host::registerService(IAllocator::descriptor, "ashmem", mRealAllocator);
        LogCaptureTest::TearDown();
    }
    // Installs a fresh allocator in the given mode and forgets earlier lines.
    sp<TestAllocator> useAllocator(TestAllocator::Mode mode) {
        sp<TestAllocator> allocator = new TestAllocator(mode);
        EXPECT_EQ(allocator->registerAsService("ashmem"), OK);
        clearLogs();
        return allocator;
    }
    // The Android lines (all, or those of one priority), an error line's location suffix
    // " (func){#line:file}" cut down to " (func)".
    Lines texts(int prio = 0) {
        Lines out;
        for (const auto& l : androidLines())
            if (prio == 0 || l.prio == prio)
                out.push_back(l.text.substr(0, l.prio == 6 ? l.text.rfind("{#") : l.text.npos));
        return out;
    }

    TempDir mRoot;
    sp<ICamDump> mService = new HostCamDump(mRoot.path());
    sp<IAllocator> mRealAllocator = IAllocator::getService("ashmem", false);
    const std::pair<int, int> mResources = resources();
};

// The service gets the path after the prefix rules, the size asked (not the allocator's larger
// block) and the content; the caller's buffer is only read. (The dump fuzz target checks more
// paths and links under the root, and that each refusal has its line.) At camera log level 2
// only the unified lines pass: warning (5) and debug (3); the test runs again in a child at
// level 3 for the property-gated debug lines (the level is read when the library is loaded).
TEST_F(CamDumpTest, PathsSizeAndContentReachTheService) {
    const bool debug = zorcam_testLog(nullptr, 'D');
    if (!debug) { EXPECT_TRUE(runWithCameraLogLevel("CamDumpTest.PathsSizeAndContent*", 3)); }
    Bytes buf(3 * 4096 + 5);
    for (size_t i = 0; i < buf.size(); ++i) buf[i] = static_cast<unsigned char>(i * 13 + i / 509);
    const std::string content(buf.begin(), buf.end());  // to show the buffer is only read
    for (const auto& [in, out] : {std::pair<std::string, std::string>{"/sdcard/a", "/sdcard/a"},
                                  {"/data/engineercamer/b.raw", "/sdcard/b.raw"}}) {
        sp<TestAllocator> allocator = useAllocator(TestAllocator::kPass);
        EXPECT_TRUE(saveBufToSDFile(in.c_str(), buf.data(), buf.size()));
        EXPECT_EQ(allocator->mSizes, std::vector<uint64_t>{buf.size()});
        EXPECT_EQ(readFile(mRoot.path() + out), content);
        Lines lines = {"[saveBufToSDFile] force change path " + in + " to SD path",
                       "[saveBufToSDFile] save to " + out,
                       "[saveBufToSDFile] CamDump: IAllocator::allocate start"};
        if (debug)
            lines.insert(lines.end(), {"CamDump: IAllocator::allocate start",
                                       "CamDump: IAllocator::allocate success",
                                       "CamDump: read buffer to HidlMemory size=12293"});
        EXPECT_EQ(texts(), Lines(lines.begin() + (in != out ? 0 : 1), lines.end()));
        EXPECT_EQ(androidLines().at(0).prio, in != out ? 5 : 3);
    }
    // Symbolic links inside the root never lead a dump out of it, whether on the way or as the
    // file itself: each such dump is refused with its line.
    TempDir outside;
    ASSERT_TRUE(symlink(outside.path().c_str(), (mRoot / "data").c_str()) == 0 &&
                symlink((outside / "v").c_str(), (mRoot / "sdcard/v").c_str()) == 0);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(saveBufToSDFile("/data/engineercamera/a", buf.data(), 100) &&
                saveBufToSDFile("/sdcard/v", buf.data(), 100));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::filesystem::is_empty(outside.path()) &&
                err.find("camdump: cannot create /data/engineercamera/a ") != std::string::npos &&
                err.find("camdump: cannot create /sdcard/v ") != std::string::npos) << err;
}

// Each failure with its error lines (the refused buffer's on the property-gated path, Android
// log only) and whether a block was allocated and sent: a refused buffer is neither, a refused
// allocation and an unmappable block reach the service, which cannot map them; without the
// allocator nothing is sent, and without the service the call fails before anything else.
TEST_F(CamDumpTest, Failures) {
    Bytes buf(100);
    char para[64];
    snprintf(para, sizeof(para), "Illegel Para: pBuf=%p, size=0 (", buf.data());
    const std::string ashmem = "CamDump operator(): ", noService =
            "[saveBufToSDFile] CamDump: tryGetService() failed! (saveBufToSDFile)";
    const struct { int mode; unsigned int size; Lines errors; bool sent; } cases[] = {
            {TestAllocator::kPass, 0, {para + std::string("saveBufToSDFile)"),
                                       para + std::string("operator())")}, false},
            {TestAllocator::kRefuse, 100,
             {ashmem + "allocating ashmem of 100 bytes failed! (operator())"}, true},
            {TestAllocator::kNoDescriptor, 100, {}, true},
            {-1, 100, {ashmem + "IAllocator::getService() failed! (operator())"}, false},
            {-2, 10, {"Illegel Para: pBuf=(nil), size=10 (saveBufToSDFile)", noService}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.errors.empty() ? "unmappable" : c.errors.back());
        sp<TestAllocator> allocator = useAllocator(c.mode < 0 ? TestAllocator::kPass
                                                              : TestAllocator::Mode(c.mode));
        if (c.mode == -1) host::unregisterService(IAllocator::descriptor, "ashmem");
        if (c.mode == -2) host::unregisterService(ICamDump::descriptor, "internal/0");
        testing::internal::CaptureStderr();
        EXPECT_EQ(saveBufToSDFile("/sdcard/x.yuv", c.mode == -2 ? nullptr : buf.data(), c.size),
                  c.mode != -2);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  c.sent ? "camdump: cannot map the block for /sdcard/x.yuv\n" : "");
        EXPECT_EQ(texts(6), c.errors);
        // The unified lines: "save to" and "allocate start", or the service failure.
        EXPECT_TRUE(ulogLines().size() == (c.mode == -2 ? 1u : 2u) &&
                    allocator->mSizes.size() == (c.sent ? 1u : 0u));
    }
}

// Blocks live in memory, not in a file on disk, and keep the size they were made with.
TEST_F(CamDumpTest, AllocatorBlocksAreSizedMemoryFiles) {
    int size = 0;
    mRealAllocator->allocate(5000, [&size](bool ok, const hidl_memory& mem) {
        const int fd = ok ? mem.handle()->data[0] : -1;
        char target[64] = {};
        struct stat st;
        EXPECT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, 63), 0);
        EXPECT_EQ(std::string(target).rfind("/memfd:", 0), 0u) << target;
        size = fstat(fd, &st) == 0 ? st.st_size : -1;
        EXPECT_TRUE(ftruncate(fd, 100) != 0 && ftruncate(fd, 10000) != 0) << "a block resized";
    });
    EXPECT_EQ(size, 5000);
}
