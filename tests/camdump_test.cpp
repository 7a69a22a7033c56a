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

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern char** environ;

using namespace zorcam_test;
using android::sp;
using android::hardware::hidl_memory;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Void;
using android::hidl::allocator::V1_0::IAllocator;
using android::hidl::memory::V1_0::IMemory;
using NSCam::Utils::saveBufToSDFile;
using vendor::velmora::hardware::camera::camdump::V1_0::ICamDump;
using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;

namespace {

constexpr const char* kTag = "ZorCam/Utils";
using Lines = std::vector<std::string>;

// Records what the service is handed, as the real service would see it: the block is mapped
// during the call and its descriptor must be open then.
class RecordingCamDump : public ICamDump {
public:
    struct Call {
        std::string path;
        std::string name;
        uint64_t size = 0;
        bool hasHandle = false;
        int fd = -1;
        bool fdOpen = false;
        bool mapped = false;
        std::vector<unsigned char> content;
    };

    Return<void> dumpBuffer(const hidl_string& path, const hidl_memory& buffer) override {
        Call call;
        call.path = path;
        call.name = buffer.name();
        call.size = buffer.size();
        call.hasHandle = buffer.handle() != nullptr;
        if (call.hasHandle && buffer.handle()->numFds > 0) {
            call.fd = buffer.handle()->data[0];
            call.fdOpen = fcntl(call.fd, F_GETFD) != -1;
        }
        if (sp<IMemory> memory = android::hardware::mapMemory(buffer)) {
            call.mapped = true;
            void* data = memory->getPointer();
            const auto* p = static_cast<const unsigned char*>(data);
            call.content.assign(p, p + static_cast<uint64_t>(memory->getSize()));
        }
        mCalls.push_back(call);
        return Void();
    }

    std::vector<Call> mCalls;
};

// Counts allocations and answers them in one of several ways.
class TestAllocator : public IAllocator {
public:
    enum class Mode { kPass, kRefuse, kNoDescriptor, kLarger };

    TestAllocator(sp<IAllocator> real, Mode mode) : mReal(std::move(real)), mMode(mode) {}

    Return<void> allocate(uint64_t size, allocate_cb cb) override {
        ++mCalls;
        mLastSize = size;
        switch (mMode) {
            case Mode::kPass:
                return mReal->allocate(size, cb);
            case Mode::kRefuse:
                cb(false, hidl_memory());
                return Void();
            case Mode::kNoDescriptor: {
                native_handle_t* handle = native_handle_create(0, 0);
                cb(true, hidl_memory("ashmem", handle, size));
                native_handle_delete(handle);
                return Void();
            }
            case Mode::kLarger:
                return mReal->allocate(size + 4096, cb);
        }
        return Void();
    }

    int mCalls = 0;
    uint64_t mLastSize = 0;

private:
    sp<IAllocator> mReal;
    Mode mMode;
};

int ashmemMappings() {
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find("ashmem") != std::string::npos) ++n;
    return n;
}

// Strips the location suffix " (func){#line:file}" of an error line; unlike stripLocation it
// also handles a function named "operator()".
std::string plain(const std::string& text) {
    const size_t brace = text.rfind("){#");
    if (brace == std::string::npos || text.back() != '}') return text;
    const size_t open = text.rfind(" (", brace);
    return open == std::string::npos ? text : text.substr(0, open);
}

std::vector<unsigned char> pattern(size_t n) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 13 + i / 509);
    return v;
}

class CamDumpTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mRealAllocator = IAllocator::getService("ashmem", false);
        ASSERT_NE(mRealAllocator, nullptr);
        mSavedService = ICamDump::tryGetService("internal/0", false);
        mService = new RecordingCamDump();
        ASSERT_EQ(mService->registerAsService("internal/0"), android::OK);
        mFds = openFdCount();
        mMappings = ashmemMappings();
    }

    void TearDown() override {
        EXPECT_EQ(openFdCount(), mFds) << "a descriptor was left open";
        EXPECT_EQ(ashmemMappings(), mMappings) << "a mapping was left behind";
        restore(ICamDump::descriptor, "internal/0", mSavedService);
        restore(IAllocator::descriptor, "ashmem", mRealAllocator);
        LogCaptureTest::TearDown();
    }

    static void restore(const char* descriptor, const char* instance,
                        const sp<android::hidl::base::V1_0::IBase>& service) {
        if (service != nullptr)
            android::hardware::host::registerService(descriptor, instance, service);
        else
            android::hardware::host::unregisterService(descriptor, instance);
    }

    sp<TestAllocator> useAllocator(TestAllocator::Mode mode) {
        sp<TestAllocator> allocator = new TestAllocator(mRealAllocator, mode);
        EXPECT_EQ(allocator->registerAsService("ashmem"), android::OK);
        return allocator;
    }

    std::vector<std::string> androidTexts() {
        std::vector<std::string> out;
        for (const auto& l : androidLines()) out.push_back(plain(l.text));
        return out;
    }

    sp<IAllocator> mRealAllocator;
    sp<ICamDump> mSavedService;
    sp<RecordingCamDump> mService;
    int mFds = 0;
    int mMappings = 0;
};

TEST_F(CamDumpTest, BufferReachesTheServiceInSharedMemory) {
    sp<TestAllocator> allocator = useAllocator(TestAllocator::Mode::kPass);
    std::vector<unsigned char> buf = pattern(3 * 1024 * 1024 + 5);
    const std::vector<unsigned char> original = buf;

    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));

    EXPECT_EQ(buf, original);
    EXPECT_EQ(allocator->mCalls, 1);
    EXPECT_EQ(allocator->mLastSize, buf.size());
    ASSERT_EQ(mService->mCalls.size(), 1u);
    const auto& call = mService->mCalls[0];
    EXPECT_EQ(call.path, "/sdcard/x.yuv");
    EXPECT_EQ(call.name, "ashmem");
    EXPECT_EQ(call.size, buf.size());
    EXPECT_TRUE(call.fdOpen);
    EXPECT_EQ(call.content, original);
    // The cloned handle belongs to the call and is closed once the service has returned.
    EXPECT_EQ(fcntl(call.fd, F_GETFD), -1);

    // At camera log level 2 only the unified debug lines pass.
    EXPECT_EQ(androidTexts(), (Lines{
            "[saveBufToSDFile] save to /sdcard/x.yuv",
            "[saveBufToSDFile] CamDump: IAllocator::allocate start",
    }));
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 2u);
    EXPECT_EQ(u[0].type, NSCam::Utils::ULog::DETAILS_DEBUG);
    EXPECT_EQ(u[0].tag, kTag);
}

TEST_F(CamDumpTest, ServiceGetsTheRequestedSizeNotTheAllocatorsStatedSize) {
    useAllocator(TestAllocator::Mode::kLarger);
    std::vector<unsigned char> buf = pattern(1000);
    EXPECT_TRUE(saveBufToSDFile("/sdcard/y.raw", buf.data(), buf.size()));
    ASSERT_EQ(mService->mCalls.size(), 1u);
    EXPECT_EQ(mService->mCalls[0].size, 1000u);
    EXPECT_EQ(mService->mCalls[0].content, buf);
}

TEST_F(CamDumpTest, PathsAreForcedUnderTheSdcardTree) {
    struct Case {
        const char* in;
        const char* out;
        bool warned;
    };
    const Case cases[] = {
            {"/data/engineercamera/p2/a.raw", "/data/engineercamera/p2/a.raw", false},
            {"/sdcard/x.yuv", "/sdcard/x.yuv", false},
            {"/sdcardX/y.yuv", "/sdcardX/y.yuv", false},  // a plain prefix test
            {"/data/vendor/camera/dump/a.raw", "/sdcard/a.raw", true},
            {"/data/engineercamer/b.raw", "/sdcard/b.raw", true},
            {"a.raw", "/sdcard", true},
            {"/a.raw", "/sdcard/a.raw", true},
            {"", "/sdcard", true},
    };
    unsigned char byte = 7;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in);
        clearLogs();
        mService->mCalls.clear();
        EXPECT_TRUE(saveBufToSDFile(c.in, &byte, 1));
        ASSERT_EQ(mService->mCalls.size(), 1u);
        EXPECT_EQ(mService->mCalls[0].path, c.out);
        EXPECT_EQ(mService->mCalls[0].content, std::vector<unsigned char>{7});

        std::vector<std::string> expected;
        if (c.warned)
            expected.push_back(std::string("[saveBufToSDFile] force change path ") + c.in +
                               " to SD path");
        expected.push_back(std::string("[saveBufToSDFile] save to ") + c.out);
        expected.push_back("[saveBufToSDFile] CamDump: IAllocator::allocate start");
        EXPECT_EQ(androidTexts(), expected);
        if (c.warned) {
            ASSERT_FALSE(androidLines().empty());
            EXPECT_EQ(androidLines()[0].prio, 5);
        }
    }
}

TEST_F(CamDumpTest, MissingServiceFailsBeforeAnyAllocation) {
    sp<TestAllocator> allocator = useAllocator(TestAllocator::Mode::kPass);
    android::hardware::host::unregisterService(ICamDump::descriptor, "internal/0");
    unsigned char byte = 1;

    EXPECT_FALSE(saveBufToSDFile("/sdcard/x.yuv", &byte, 1));
    expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, kTag,
                   "[saveBufToSDFile] CamDump: tryGetService() failed!");
    clearLogs();

    EXPECT_FALSE(saveBufToSDFile("/sdcard/x.yuv", nullptr, 10));
    const auto a = androidLines();
    ASSERT_EQ(a.size(), 2u);
    EXPECT_EQ(a[0].text.rfind("Illegel Para: pBuf=(nil), size=10 (saveBufToSDFile){#", 0), 0u)
            << a[0].text;
    EXPECT_EQ(plain(a[1].text), "[saveBufToSDFile] CamDump: tryGetService() failed!");
    // The refused-buffer line takes the property-gated path: Android log only.
    EXPECT_EQ(ulogLines().size(), 1u);
    EXPECT_EQ(allocator->mCalls, 0);
}

TEST_F(CamDumpTest, RefusedBufferIsNeitherAllocatedNorSent) {
    sp<TestAllocator> allocator = useAllocator(TestAllocator::Mode::kPass);
    unsigned char byte = 1;
    const std::pair<unsigned char*, unsigned int> refused[] = {{&byte, 0}, {nullptr, 5}};
    for (const auto& [buf, size] : refused) {
        clearLogs();
        EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf, size));
        const auto a = androidLines();
        std::vector<std::string> errors;
        for (const auto& l : a)
            if (l.prio == 6) errors.push_back(l.text);
        ASSERT_EQ(errors.size(), 2u);
        char text[64];
        snprintf(text, sizeof(text), "Illegel Para: pBuf=%p, size=%u", static_cast<void*>(buf),
                 size);
        EXPECT_EQ(errors[0].rfind(std::string(text) + " (saveBufToSDFile){#", 0), 0u) << errors[0];
        EXPECT_EQ(errors[1].rfind(std::string(text) + " (operator()){#", 0), 0u) << errors[1];
    }
    EXPECT_EQ(allocator->mCalls, 0);
    EXPECT_TRUE(mService->mCalls.empty());
}

TEST_F(CamDumpTest, RefusedAllocationStillCallsTheServiceWithAnEmptyBlock) {
    useAllocator(TestAllocator::Mode::kRefuse);
    std::vector<unsigned char> buf = pattern(100);
    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));

    ASSERT_EQ(mService->mCalls.size(), 1u);
    EXPECT_FALSE(mService->mCalls[0].hasHandle);
    EXPECT_EQ(mService->mCalls[0].size, 0u);
    EXPECT_EQ(androidTexts().back(), "CamDump operator(): allocating ashmem of 100 bytes failed!");
    EXPECT_EQ(androidLines().back().prio, 6);
    EXPECT_EQ(ulogLines().size(), 2u);  // the two unified debug lines only
}

TEST_F(CamDumpTest, UnmappableBlockIsSentUnfilled) {
    useAllocator(TestAllocator::Mode::kNoDescriptor);
    std::vector<unsigned char> buf = pattern(100);
    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));

    ASSERT_EQ(mService->mCalls.size(), 1u);
    EXPECT_TRUE(mService->mCalls[0].hasHandle);
    EXPECT_EQ(mService->mCalls[0].name, "ashmem");
    EXPECT_EQ(mService->mCalls[0].size, 100u);
    EXPECT_FALSE(mService->mCalls[0].mapped);
}

TEST_F(CamDumpTest, MissingAllocatorSendsNothing) {
    android::hardware::host::unregisterService(IAllocator::descriptor, "ashmem");
    unsigned char byte = 1;
    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", &byte, 1));
    EXPECT_TRUE(mService->mCalls.empty());
    EXPECT_EQ(androidTexts().back(), "CamDump operator(): IAllocator::getService() failed!");
    EXPECT_EQ(androidLines().back().prio, 6);
}

TEST_F(CamDumpTest, HostServiceWritesUnderItsRoot) {
    TempDir root;
    ASSERT_FALSE(root.path().empty());
    sp<ICamDump> host = new HostCamDump(root.path());
    ASSERT_EQ(host->registerAsService("internal/0"), android::OK);
    std::vector<unsigned char> buf = pattern(200000);

    EXPECT_TRUE(saveBufToSDFile("/data/engineercamera/p2/a.raw", buf.data(), buf.size()));
    EXPECT_TRUE(saveBufToSDFile("/data/vendor/dump/b.yuv", buf.data(), 1000));

    auto contents = [](const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_EQ(contents(root / "data/engineercamera/p2/a.raw"), buf);
    EXPECT_EQ(contents(root / "sdcard/b.yuv"),
              std::vector<unsigned char>(buf.begin(), buf.begin() + 1000));
}

// The property-gated debug lines pass only above camera log level 2, which is read when the
// library is loaded: this test runs itself again in a child whose properties set level 3.
TEST_F(CamDumpTest, DebugLinesAboveLevelTwo) {
    if (zorcam_testLog(nullptr, 'D') == 0) {
        TempDir dir;
        const std::string props = dir / "props";
        std::ofstream(props) << "persist.vendor.zor.camera.log_level=3\n";
        std::string filter = "--gtest_filter=CamDumpTest.DebugLinesAboveLevelTwo";
        std::string env = "ZORCAM_PROPERTIES=" + props;
        std::vector<char*> envp;
        for (char** e = environ; *e != nullptr; ++e)
            if (strncmp(*e, "ZORCAM_PROPERTIES=", 18) != 0) envp.push_back(*e);
        envp.push_back(env.data());
        envp.push_back(nullptr);
        char self[] = "/proc/self/exe";
        char* argv[] = {self, filter.data(), nullptr};
        pid_t pid = 0;
        ASSERT_EQ(posix_spawn(&pid, self, nullptr, nullptr, argv, envp.data()), 0);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child failed";
        return;
    }

    std::vector<unsigned char> buf = pattern(100);
    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));
    EXPECT_EQ(androidTexts(), (Lines{
            "[saveBufToSDFile] save to /sdcard/x.yuv",
            "[saveBufToSDFile] CamDump: IAllocator::allocate start",
            "CamDump: IAllocator::allocate start",
            "CamDump: IAllocator::allocate success",
            "CamDump: read buffer to HidlMemory size=100",
    }));
    clearLogs();

    useAllocator(TestAllocator::Mode::kRefuse);
    EXPECT_TRUE(saveBufToSDFile("/sdcard/x.yuv", buf.data(), buf.size()));
    EXPECT_EQ(androidTexts(), (Lines{
            "[saveBufToSDFile] save to /sdcard/x.yuv",
            "[saveBufToSDFile] CamDump: IAllocator::allocate start",
            "CamDump: IAllocator::allocate start",
            "CamDump operator(): allocating ashmem of 100 bytes failed!",
            "CamDump: IAllocator::allocate success",
    }));
}

}  // namespace
