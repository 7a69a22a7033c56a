#include "ChildProcess.h"
#include "FdCount.h"
#include "LogCapture.h"
#include "TempDir.h"

#include <zorcam/utils/std/Log.h>
#include <zorcam/utils/std/Misc.h>

#include <android/hidl/allocator/1.0/IAllocator.h>
#include <hidl/HostServiceRegistry.h>
#include <hidlmemory/mapping.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/ICamDump.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

using namespace android;
using namespace android::hardware;
using namespace zorcam_test;
using android::hidl::allocator::V1_0::IAllocator;
using NSCam::Utils::saveBufToSDFile;
using vendor::velmora::hardware::camera::camdump::V1_0::ICamDump;

namespace {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

const std::string kRefusedAllocation =
        "CamDump operator(): allocating ashmem of 100 bytes failed! (operator())";

// Records what the service is handed, as the real service would see it: the block is mapped
// during the call, so its descriptor must still be open then.
struct RecordingCamDump : public ICamDump {
    struct Call {
        std::string path;
        uint64_t size;
        Bytes content;  // empty when the block could not be mapped
    };

    Return<void> dumpBuffer(const hidl_string& path, const hidl_memory& buffer) override {
        Bytes content;
        if (sp<hidl::memory::V1_0::IMemory> memory = mapMemory(buffer)) {
            const auto* p = static_cast<unsigned char*>(static_cast<void*>(memory->getPointer()));
            content.assign(p, p + static_cast<uint64_t>(memory->getSize()));
        }
        mCalls.push_back({path, buffer.size(), content});
        return Void();
    }

    std::vector<Call> mCalls;
};

// Records allocations and answers them in one of several ways (kAbsent: not registered). A
// passed allocation states a larger size than asked, as an allocator rounding up may.
struct TestAllocator : public IAllocator {
    enum class Mode { kPass, kRefuse, kNoDescriptor, kAbsent };

    TestAllocator(sp<IAllocator> real, Mode mode) : mReal(std::move(real)), mMode(mode) {}

    Return<void> allocate(uint64_t size, allocate_cb cb) override {
        mSizes.push_back(size);
        if (mMode == Mode::kPass) return mReal->allocate(size + 4096, cb);
        if (mMode == Mode::kRefuse) {
            cb(false, hidl_memory());
            return Void();
        }
        native_handle_t* handle = native_handle_create(0, 0);  // a block with no descriptor
        cb(true, hidl_memory("ashmem", handle, size));
        native_handle_delete(handle);
        return Void();
    }

    sp<IAllocator> mReal;
    Mode mMode;
    std::vector<uint64_t> mSizes;  // of each allocation asked for
};

int ashmemMappings() {
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find("ashmem") != std::string::npos) ++n;
    return n;
}

Bytes pattern(size_t n) {
    Bytes v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 13 + i / 509);
    return v;
}

class CamDumpTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mRealAllocator = IAllocator::getService("ashmem", false);
        mService = new RecordingCamDump();
        ASSERT_EQ(mService->registerAsService("internal/0"), OK);
        mFds = openFdCount();
        mMappings = ashmemMappings();
    }

    void TearDown() override {
        EXPECT_EQ(openFdCount(), mFds) << "a descriptor was left open";
        EXPECT_EQ(ashmemMappings(), mMappings) << "a mapping was left behind";
        host::unregisterService(ICamDump::descriptor, "internal/0");
        host::registerService(IAllocator::descriptor, "ashmem", mRealAllocator);
        LogCaptureTest::TearDown();
    }

    // Installs a fresh allocator in the given mode and forgets earlier calls and lines.
    sp<TestAllocator> useAllocator(TestAllocator::Mode mode) {
        sp<TestAllocator> allocator = new TestAllocator(mRealAllocator, mode);
        if (mode == TestAllocator::Mode::kAbsent)
            host::unregisterService(IAllocator::descriptor, "ashmem");
        else
            EXPECT_EQ(allocator->registerAsService("ashmem"), OK);
        mService->mCalls.clear();
        clearLogs();
        return allocator;
    }

    // The Android lines (all, or those of one priority), an error line's location suffix
    // " (func){#line:file}" cut down to " (func)".
    Lines texts(int prio = 0) {
        Lines out;
        for (const auto& l : androidLines()) {
            EXPECT_EQ(l.tag, "ZorCam/Utils");
            if (prio != 0 && l.prio != prio) continue;
            const bool located = !l.text.empty() && l.text.back() == '}';
            out.push_back(l.text.substr(0, located ? l.text.rfind("{#") : l.text.size()));
        }
        return out;
    }

    sp<IAllocator> mRealAllocator;
    sp<RecordingCamDump> mService;
    int mFds = 0;
    int mMappings = 0;
};

// The service gets the path after the prefix rules, the size asked (not the allocator's larger
// block) and the content; the caller's buffer is only read. At camera log level 2 only the
// unified lines pass: warning (5) and debug (3).
TEST_F(CamDumpTest, PathsSizeAndContentReachTheService) {
    const struct { std::string in, out; } cases[] = {
            {"/data/engineercamera/p2/a.raw", "/data/engineercamera/p2/a.raw"},
            {"/sdcard/x.yuv", "/sdcard/x.yuv"},
            {"/sdcardX/y.yuv", "/sdcardX/y.yuv"},  // a plain prefix test
            {"/data/engineercamer/b.raw", "/sdcard/b.raw"},
            {"a.raw", "/sdcard"},
            {"/a.raw", "/sdcard/a.raw"},
            {"", "/sdcard"},
    };
    const size_t size = 3 * 4096 + 5;
    Bytes buf = pattern(size);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        sp<TestAllocator> allocator = useAllocator(TestAllocator::Mode::kPass);
        EXPECT_TRUE(saveBufToSDFile(c.in.c_str(), buf.data(), size));
        EXPECT_EQ(allocator->mSizes, std::vector<uint64_t>{size});
        ASSERT_EQ(mService->mCalls.size(), 1u);
        EXPECT_EQ(mService->mCalls[0].path, c.out);
        EXPECT_EQ(mService->mCalls[0].size, size);
        EXPECT_EQ(mService->mCalls[0].content, buf);
        const bool warned = c.in != c.out;
        const Lines lines = {"[saveBufToSDFile] force change path " + c.in + " to SD path",
                             "[saveBufToSDFile] save to " + c.out,
                             "[saveBufToSDFile] CamDump: IAllocator::allocate start"};
        EXPECT_EQ(texts(), Lines(lines.begin() + (warned ? 0 : 1), lines.end()));
        EXPECT_EQ(androidLines().at(0).prio, warned ? 5 : 3);
    }
    EXPECT_EQ(buf, pattern(size));
}

// Each failure with its error lines (the refused buffer's on the property-gated path, Android
// log only) and what the service gets: a refused buffer is neither allocated nor sent, a
// refused allocation is sent as an empty block, an unmappable block unfilled; without the
// allocator nothing is sent, and without the service the call fails before any allocation.
TEST_F(CamDumpTest, Failures) {
    using Mode = TestAllocator::Mode;
    Bytes buf = pattern(100);
    unsigned char* const b = buf.data();
    auto para = [](const void* p, unsigned int size, const char* func) {
        char text[80];
        snprintf(text, sizeof(text), "Illegel Para: pBuf=%p, size=%u (%s)", p, size, func);
        return std::string(text);
    };
    const char* op = "saveBufToSDFile";
    const std::string noService =
            "[saveBufToSDFile] CamDump: tryGetService() failed! (saveBufToSDFile)";
    // The allocator, whether the service is there, the buffer and size, the error lines, and the
    // number of blocks sent with the size of the (empty) block the service got.
    const struct { Mode mode; bool service; unsigned char* buf; unsigned int size; Lines errors;
                   size_t sent; uint64_t sentSize; } cases[] = {
            {Mode::kPass, true, b, 0, {para(b, 0, op), para(b, 0, "operator()")}, 0, 0},
            {Mode::kPass, true, nullptr, 5,
             {para(nullptr, 5, op), para(nullptr, 5, "operator()")}, 0, 0},
            {Mode::kRefuse, true, b, 100, {kRefusedAllocation}, 1, 0},
            {Mode::kNoDescriptor, true, b, 100, {}, 1, 100},
            {Mode::kAbsent, true, b, 100,
             {"CamDump operator(): IAllocator::getService() failed! (operator())"}, 0, 0},
            {Mode::kPass, false, b, 1, {noService}, 0, 0},
            {Mode::kPass, false, nullptr, 10, {para(nullptr, 10, op), noService}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.errors.empty() ? "unmappable" : c.errors.back());
        sp<TestAllocator> allocator = useAllocator(c.mode);
        if (!c.service) host::unregisterService(ICamDump::descriptor, "internal/0");
        EXPECT_EQ(saveBufToSDFile("/sdcard/x.yuv", c.buf, c.size), c.service);
        EXPECT_EQ(texts(6), c.errors);
        // The unified lines: "save to" and "allocate start", or the service failure.
        EXPECT_EQ(ulogLines().size(), c.service ? 2u : 1u);
        EXPECT_EQ(allocator->mSizes.size(), c.sent);
        ASSERT_EQ(mService->mCalls.size(), c.sent);
        if (c.sent == 0) continue;
        EXPECT_EQ(mService->mCalls[0].size, c.sentSize);
        EXPECT_TRUE(mService->mCalls[0].content.empty());
    }
}

// The host service writes under its root. Symbolic links inside the root never lead a dump out
// of it, whether on the way or as the file itself; a path naming a directory is refused too.
// Each refusal has its line.
TEST_F(CamDumpTest, HostServiceWritesUnderItsRootOnly) {
    using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;
    TempDir root, outside;
    sp<ICamDump> host = new HostCamDump(root.path());
    ASSERT_EQ(host->registerAsService("internal/0"), OK);
    Bytes buf = pattern(200000);
    EXPECT_TRUE(saveBufToSDFile("/data/engineercamera/p2/a.raw", buf.data(), buf.size()));
    EXPECT_TRUE(saveBufToSDFile("/data/vendor/dump/b.yuv", buf.data(), 1000));
    const std::string whole(buf.begin(), buf.end());
    EXPECT_EQ(readFile(root / "data/engineercamera/p2/a.raw"), whole);
    EXPECT_EQ(readFile(root / "sdcard/b.yuv"), whole.substr(0, 1000));

    ASSERT_EQ(rename((root / "data").c_str(), (root / "old").c_str()), 0);
    ASSERT_EQ(symlink(outside.path().c_str(), (root / "data").c_str()), 0);
    ASSERT_EQ(symlink((outside / "victim").c_str(), (root / "sdcard/v.yuv").c_str()), 0);
    ASSERT_EQ(symlink("../..", (root / "sdcard/up").c_str()), 0);
    for (const char* path : {"/data/engineercamera/a.raw", "/sdcard/v.yuv", "/sdcard/up/x/b.raw",
                             "/sdcard/.", "/sdcard/sub/"}) {
        SCOPED_TRACE(path);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(saveBufToSDFile(path, buf.data(), 100));
        EXPECT_NE(testing::internal::GetCapturedStderr().find("camdump: "), std::string::npos);
    }
    struct stat st;
    EXPECT_NE(lstat((outside / "engineercamera").c_str(), &st), 0);
    EXPECT_NE(lstat((outside / "victim").c_str(), &st), 0);
    EXPECT_NE(lstat((root / "sdcard/sub").c_str(), &st), 0);
    EXPECT_NE(lstat((root.path() + "/../x").c_str(), &st), 0);
}

// Blocks live in memory, not in a file on disk, and keep the size they were made with.
TEST_F(CamDumpTest, AllocatorBlocksAreSizedMemoryFiles) {
    bool allocated = false;
    mRealAllocator->allocate(5000, [&](bool ok, const hidl_memory& mem) {
        ASSERT_TRUE(ok);
        allocated = true;
        const int fd = mem.handle()->data[0];
        char target[256] = {};
        ASSERT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target,
                           sizeof(target) - 1), 0);
        EXPECT_EQ(std::string(target).rfind("/memfd:ashmem", 0), 0u) << target;
        struct stat st;
        EXPECT_TRUE(fstat(fd, &st) == 0 && st.st_size == 5000);
        EXPECT_NE(ftruncate(fd, 100), 0) << "a block shrank under its mappings";
        EXPECT_NE(ftruncate(fd, 10000), 0) << "a block grew";
    });
    EXPECT_TRUE(allocated);
}

// The property-gated debug lines pass only above camera log level 2, which is read when the
// library is loaded: this test runs itself again in a child at level 3.
TEST_F(CamDumpTest, DebugLinesAboveLevelTwo) {
    if (!zorcam_testLog(nullptr, 'D')) {
        EXPECT_TRUE(runWithCameraLogLevel("CamDumpTest.DebugLinesAboveLevelTwo", 3));
        return;
    }
    const std::string start = "CamDump: IAllocator::allocate start";
    const std::string success = "CamDump: IAllocator::allocate success";
    Bytes buf = pattern(100);
    for (auto mode : {TestAllocator::Mode::kPass, TestAllocator::Mode::kRefuse}) {
        useAllocator(mode);
        EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));
        const bool pass = mode == TestAllocator::Mode::kPass;
        EXPECT_EQ(texts(), (Lines{"[saveBufToSDFile] save to /sdcard/x.yuv",
                                  "[saveBufToSDFile] " + start, start,
                                  pass ? success : kRefusedAllocation,
                                  pass ? "CamDump: read buffer to HidlMemory size=100" : success}));
    }
}

}  // namespace
