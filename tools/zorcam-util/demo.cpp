// zorcam-util demo: a synthetic camera preview run the way a camera HAL runs one. A sensor
// thread makes frames into a pool of shared-memory buffers, a processing thread signals each
// frame's acquire fence when its simulated work is done, and a display thread waits on the
// frame's fences, draws the debug overlays, paces the frame out, and dumps every Kth one
// through the camera-dump service. The run ends with a summary table and a report.

#include "Demo.h"

#include <android-base/unique_fd.h>
#include <android/hidl/allocator/1.0/IAllocator.h>
#include <android/log.h>
#include <android/sw_sync.h>
#include <android/sync.h>
#include <cutils/native_handle.h>
#include <cutils/properties.h>
#include <hidl/HostServiceRegistry.h>
#include <hidlmemory/mapping.h>
#include <pthread.h>
#include <unistd.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>
#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/DebugScanLine.h>
#include <zorcam/utils/std/DurationTool.h>
#include <zorcam/utils/std/Format.h>
#include <zorcam/utils/std/FrameController.h>
#include <zorcam/utils/std/Misc.h>
#include <zorcam/utils/std/Profile.h>
#include <zorcam/utils/std/Property.h>
#include <zorcam/utils/std/Sync.h>
#include <zorcam/utils/std/ULogPrinter.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Args.h"
#include "Clock.h"
#include "Command.h"
#include "RawImage.h"
#include "ReportPage.h"
#include "StampReader.h"
#include "Stats.h"

namespace zorcam_util {

namespace {

using android::sp;
using android::String8;
using android::hidl::allocator::V1_0::IAllocator;
using android::hidl::memory::V1_0::IMemory;
using NSCam::Utils::Sync::IFence;
using NSCam::Utils::ULog::ULogPrinter;
namespace Fmt = NSCam::Utils::Format;
namespace Property = NSCam::Utils::Property;

constexpr unsigned kLibraryModule = 0x40007001;
constexpr const char* kTag = "ZorCam/Demo";
constexpr unsigned kStampDigits = 5;
constexpr size_t kDisplayBacklog = 2;  // frames waiting beyond this are dropped, oldest first
constexpr const char* kDumpDir = "/sdcard/zorcam-demo";

// Settings handed from the main thread to the pipeline threads.
constexpr const char* kPropProcessUs = "demo.processing.us";
constexpr const char* kPropDumpEvery = "demo.display.dump_every";
constexpr const char* kPropShown = "demo.display.shown";
constexpr const char* kPropMade = "demo.sensor.made";

enum Stage { kFill, kProcess, kFenceWait, kOverlay, kPace, kDump, kEndToEnd, kStageCount };
const char* const kStageNames[kStageCount] = {"sensor fill",   "processing", "fence wait",
                                              "overlays",      "pace hold",  "dump",
                                              "capture to out"};

// Entries of /proc/self/fd, less the one the listing itself holds open.
int openDescriptors() {
    std::error_code ec;
    const auto entries = std::distance(std::filesystem::directory_iterator("/proc/self/fd", ec),
                                       std::filesystem::directory_iterator());
    return ec ? -1 : static_cast<int>(entries) - 1;
}

// The fence emulation lets go of closed timelines at its next call: make one.
void settleFences() {
    if (struct sync_file_info* info = sync_file_info(-1)) sync_file_info_free(info);
}

// One buffer of the pool: a shared-memory block from the HIDL allocator, mapped, and the fence
// the display returned with it last time.
struct Buffer {
    native_handle_t* handle = nullptr;  // our clone of the block's handle
    sp<IMemory> memory;
    uint8_t* data = nullptr;
    sp<IFence> release = IFence::NO_FENCE;

    ~Buffer() {
        memory.clear();
        if (handle != nullptr) {
            native_handle_close(handle);
            native_handle_delete(handle);
        }
    }
};

struct Frame {
    uint32_t number;
    int64_t timestamp;  // ns, when the sensor captured it
    Buffer* buffer;
    sp<IFence> acquire;
};

// A queue between two threads; close() wakes the consumer once it has drained.
template <typename T>
class Channel {
public:
    void push(T item) {
        std::lock_guard<std::mutex> lock(mLock);
        mItems.push_back(std::move(item));
        mReady.notify_one();
    }
    // False once closed and empty.
    bool pop(T* item, size_t* left = nullptr) {
        std::unique_lock<std::mutex> lock(mLock);
        mReady.wait(lock, [this] { return !mItems.empty() || mClosed; });
        if (mItems.empty()) return false;
        *item = std::move(mItems.front());
        mItems.pop_front();
        if (left != nullptr) *left = mItems.size();
        return true;
    }
    bool tryPop(T* item) {
        std::lock_guard<std::mutex> lock(mLock);
        if (mItems.empty()) return false;
        *item = std::move(mItems.front());
        mItems.pop_front();
        return true;
    }
    void close() {
        std::lock_guard<std::mutex> lock(mLock);
        mClosed = true;
        mReady.notify_all();
    }

private:
    std::mutex mLock;
    std::condition_variable mReady;
    std::deque<T> mItems;
    bool mClosed = false;
};

// Per-thread records, merged into the result once the threads have ended.
struct ThreadLog {
    ThreadTrace trace;
    std::vector<StageTimes> stages = std::vector<StageTimes>(kStageCount);

    void begin(const char* name) {
        trace.name = name;
        trace.tid = gettid();
        pthread_setname_np(pthread_self(), name);
    }
    void event(const char* name, int64_t start, int64_t end, int64_t frame) {
        trace.events.push_back({name, start, end - start, frame});
    }
    void stage(Stage s, int64_t wall, int64_t cpu) {
        stages[s].wall.push_back(static_cast<double>(wall));
        stages[s].cpu += cpu;
        stages[s].frames++;
    }
};

class Pipeline {
public:
    Pipeline(const DemoOptions& o, DemoResult* r) : mOptions(o), mResult(r) {}

    bool allocate(std::string* error);
    void run();

private:
    void sensor();
    void processing();
    void display();
    void fillScene(uint8_t* data, uint32_t number) const;
    void progress();

    const DemoOptions& mOptions;
    DemoResult* mResult;
    std::vector<PlaneLayout> mPlanes;
    uint64_t mBufferSize = 0;
    std::vector<std::unique_ptr<Buffer>> mPool;
    std::mutex mFreeLock;
    std::deque<Buffer*> mFree;
    Channel<Frame> mToDisplay;
    Channel<uint32_t> mToProcessing;
    android::base::unique_fd mAcquireTimeline;
    android::base::unique_fd mReleaseTimeline;
    std::atomic<int64_t> mFencesMade{0};
    std::atomic<bool> mSensorDone{false};
    ThreadLog mSensorLog, mProcessingLog, mDisplayLog;
    int64_t mStart = 0;
    int64_t mFramesPlanned = 0;
    std::atomic<int64_t> mDroppedAtSensor{0};
    std::atomic<int64_t> mDroppedAtDisplay{0};
    int64_t mFencesMerged = 0;
    std::vector<int64_t> mReleases;
    std::vector<uint32_t> mShown;
    std::vector<DumpRecord> mDumps;
};

bool Pipeline::allocate(std::string* error) {
    if (!rawLayout(mOptions.format, mOptions.width, mOptions.height, 0, &mPlanes, &mBufferSize,
                   error)) {
        return false;
    }
    sp<IAllocator> allocator = IAllocator::getService("ashmem");
    if (allocator == nullptr) {
        *error = "no ashmem allocator";
        return false;
    }
    for (int i = 0; i < mOptions.buffers; ++i) {
        auto buffer = std::make_unique<Buffer>();
        allocator->allocate(mBufferSize, [&](bool ok, const android::hardware::hidl_memory& mem) {
            if (!ok) return;
            // The block lives only for the callback: keep a clone of its handle.
            buffer->handle = native_handle_clone(mem.handle());
            if (buffer->handle == nullptr) return;
            buffer->memory = android::hardware::mapMemory(
                    android::hardware::hidl_memory("ashmem", buffer->handle, mem.size()));
        });
        if (buffer->memory == nullptr) {
            *error = "cannot allocate buffer " + std::to_string(i);
            return false;
        }
        buffer->data = static_cast<uint8_t*>(static_cast<void*>(buffer->memory->getPointer()));
        mFree.push_back(buffer.get());
        mPool.push_back(std::move(buffer));
    }
    mAcquireTimeline.reset(sw_sync_timeline_create());
    mReleaseTimeline.reset(sw_sync_timeline_create());
    if (mAcquireTimeline.get() < 0 || mReleaseTimeline.get() < 0) {
        *error = std::string("cannot make a timeline: ") + strerror(errno);
        return false;
    }
    return true;
}

// A moving scene: a scrolling diagonal ramp in luma with a bright square bouncing across it,
// and chroma that drifts with position and time.
void Pipeline::fillScene(uint8_t* data, uint32_t number) const {
    const int w = mOptions.width, h = mOptions.height;
    const int side = std::max(8, std::min(w, h) / 5);
    const int spanX = std::max(1, w - side), spanY = std::max(1, h - side);
    const int px = static_cast<int>(number * 7) % (2 * spanX);
    const int py = static_cast<int>(number * 5) % (2 * spanY);
    const int bx = px < spanX ? px : 2 * spanX - px;
    const int by = py < spanY ? py : 2 * spanY - py;
    const PlaneLayout& luma = mPlanes[0];
    for (int y = 0; y < h; ++y) {
        uint8_t* row = data + luma.offset + y * luma.stride;
        const bool inY = y >= by && y < by + side;
        for (int x = 0; x < w; ++x) {
            const bool inBox = inY && x >= bx && x < bx + side;
            row[x] = inBox ? 210 : static_cast<uint8_t>(40 + ((x + y + 4 * number) >> 2) % 120);
        }
    }
    for (size_t p = 1; p < mPlanes.size(); ++p) {
        const PlaneLayout& plane = mPlanes[p];
        for (uint64_t y = 0; y < plane.rows; ++y) {
            uint8_t* row = data + plane.offset + y * plane.stride;
            for (uint64_t x = 0; x < plane.stride; ++x)
                row[x] = static_cast<uint8_t>(
                        128 +
                        static_cast<int>(((x >> 3) + (x & 1 ? y : 2 * number) + p * 40) % 96) - 48);
        }
    }
}

void Pipeline::sensor() {
    mSensorLog.begin("sensor");
    NSCam::Utils::setThreadPriority(0, -2);
    ULogPrinter log(kLibraryModule, kTag, NSCam::Utils::ULog::DETAILS_WARNING);
    const int64_t interval = static_cast<int64_t>(std::llround(1e9 / mOptions.fps));
    std::mt19937 rng(1);
    std::uniform_int_distribution<int64_t> jitter(
            0, static_cast<int64_t>(mOptions.jitterMs * kNsPerMs));
    uint32_t admitted = 0;
    for (int64_t n = 0; n < mFramesPlanned; ++n) {
        const int64_t due = mStart + n * interval;
        sleepUntil(due + jitter(rng));
        const int64_t t0 = now(), c0 = threadCpuNow();
        const uint32_t number = static_cast<uint32_t>(n);
        Buffer* buffer = nullptr;
        {
            std::lock_guard<std::mutex> lock(mFreeLock);
            if (!mFree.empty()) {
                buffer = mFree.front();
                mFree.pop_front();
            }
        }
        if (buffer == nullptr) {
            ++mDroppedAtSensor;
            log.printFormatLine("frame %u dropped: no free buffer", number);
            mSensorLog.event("drop: no buffer", t0, now(), number);
            continue;
        }
        fillScene(buffer->data, number);
        const int fd = sw_sync_fence_create(mAcquireTimeline.get(), "acquire", ++admitted);
        sp<IFence> acquire = IFence::create(fd);
        if (fd >= 0) ++mFencesMade;
        const int64_t t1 = now();
        mSensorLog.stage(kFill, t1 - t0, threadCpuNow() - c0);
        mSensorLog.event("fill", t0, t1, number);
        mToProcessing.push(number);
        mToDisplay.push({number, due, buffer, acquire});
        Property::set(String8(kPropMade), String8(std::to_string(n + 1).c_str()));
    }
    mSensorDone = true;
    mToProcessing.close();
    mToDisplay.close();
}

void Pipeline::processing() {
    mProcessingLog.begin("processing");
    NSCam::Utils::setThreadPriority(0, -1);
    int workUs = 0;
    Property::tryGet(String8(kPropProcessUs), workUs);
    uint32_t number = 0;
    while (mToProcessing.pop(&number)) {
        const int64_t t0 = now(), c0 = threadCpuNow();
        // The simulated work: a little more or less with every frame.
        sleepUntil(t0 + static_cast<int64_t>(workUs) * 1000 * (4 + number % 3) / 5);
        sw_sync_timeline_inc(mAcquireTimeline.get(), 1);
        const int64_t t1 = now();
        mProcessingLog.stage(kProcess, t1 - t0, threadCpuNow() - c0);
        mProcessingLog.event("process", t0, t1, number);
    }
}

void Pipeline::display() {
    mDisplayLog.begin("display");
    NSCam::Utils::setThreadPriority(0, -4);
    ULogPrinter log(kLibraryModule, kTag, NSCam::Utils::ULog::DETAILS_INFO);
    int dumpEvery = 0;
    Property::tryGet(String8(kPropDumpEvery), dumpEvery);
    sp<NSCam::Utils::FrameController> controller =
            new NSCam::Utils::FrameController(String8("demo"));
    NSCam::Utils::DurationTool meter("demo display");
    std::unique_ptr<DebugDrawID, void (*)(DebugDrawID*)> stamp(
            DebugDrawID::createInstance(), [](DebugDrawID* p) { p->destroyInstance(); });
    std::unique_ptr<DebugScanLine, void (*)(DebugScanLine*)> band(
            DebugScanLine::createInstance(), [](DebugScanLine* p) { p->destroyInstance(); });
    const PlaneLayout& luma = mPlanes[0];
    const uint64_t lumaBytes = luma.stride * luma.rows;
    const int fpsWindow = std::max(1, static_cast<int>(mOptions.fps));
    const std::string suffix = "." + mOptions.formatName;

    Frame frame;
    size_t waiting = 0;
    uint32_t shown = 0;
    while (mToDisplay.pop(&frame, &waiting)) {
        if (waiting >= kDisplayBacklog) {
            // A newer frame is ready: this one would only add to the delay.
            const int64_t t = now();
            ++mDroppedAtDisplay;
            log.printFormatLine("frame %u dropped: %zu newer frames waiting", frame.number,
                                waiting);
            mDisplayLog.event("drop: late", t, t, frame.number);
            std::lock_guard<std::mutex> lock(mFreeLock);
            mFree.push_back(frame.buffer);
            continue;
        }
        NSCam::Utils::CamProfile profile("display", "Demo");
        Buffer* buffer = frame.buffer;

        int64_t t0 = now(), c0 = threadCpuNow();
        sp<IFence> ready = IFence::merge("present", frame.acquire, buffer->release);
        ++mFencesMerged;
        ready->waitForever("zorcam-util demo");
        int64_t t1 = now(), c1 = threadCpuNow();
        mDisplayLog.stage(kFenceWait, t1 - t0, c1 - c0);
        mDisplayLog.event("fence wait", t0, t1, frame.number);
        profile.print("frame %u: fences signalled", frame.number);

        // The band first, then the stamp, so the number stays readable under the band.
        band->drawScanLine(mOptions.width, mOptions.height, buffer->data + luma.offset,
                           static_cast<int>(lumaBytes), static_cast<int>(luma.stride));
        if (stamp->needDraw()) {
            stamp->draw(frame.number, reinterpret_cast<char*>(buffer->data + luma.offset),
                        mOptions.width, mOptions.height, static_cast<unsigned>(luma.stride),
                        static_cast<unsigned>(lumaBytes));
        }
        t0 = now(), c0 = threadCpuNow();
        mDisplayLog.stage(kOverlay, t0 - t1, c0 - c1);
        mDisplayLog.event("overlays", t1, t0, frame.number);
        profile.print("frame %u: overlays drawn", frame.number);

        controller->bufferControl(frame.timestamp);
        t1 = now(), c1 = threadCpuNow();
        mDisplayLog.stage(kPace, t1 - t0, c1 - c0);
        mDisplayLog.event("pace hold", t0, t1, frame.number);
        profile.print("frame %u: released", frame.number);
        mReleases.push_back(t1);
        mShown.push_back(frame.number);
        mDisplayLog.stage(kEndToEnd, t1 - frame.timestamp, 0);
        meter.update(t1);
        if (++shown % fpsWindow == 0) {
            meter.showFps();
            meter.reset(t1);
        }

        if (dumpEvery > 0 && shown % dumpEvery == 0) {
            char name[96];
            snprintf(name, sizeof(name), "%s/frame_%06u%s", kDumpDir, frame.number, suffix.c_str());
            if (NSCam::Utils::saveBufToSDFile(name, buffer->data,
                                              static_cast<unsigned>(mBufferSize))) {
                mDumps.push_back({frame.number, mOptions.out + name});
            } else {
                log.printFormatLine("frame %u: the dump service is missing", frame.number);
            }
            t0 = now(), c0 = threadCpuNow();
            mDisplayLog.stage(kDump, t0 - t1, c0 - c1);
            mDisplayLog.event("dump", t1, t0, frame.number);
            profile.print("frame %u: dumped", frame.number);
        }

        // The buffer goes back with a fence that signals when the next frame replaces it on
        // the screen.
        const int fd = sw_sync_fence_create(mReleaseTimeline.get(), "release", shown + 1);
        buffer->release = IFence::create(fd);
        if (fd >= 0) ++mFencesMade;
        sw_sync_timeline_inc(mReleaseTimeline.get(), 1);
        Property::set(String8(kPropShown), String8(std::to_string(shown).c_str()));
        std::lock_guard<std::mutex> lock(mFreeLock);
        mFree.push_back(buffer);
    }
    // Nothing replaces the last frame: let its buffer go.
    sw_sync_timeline_inc(mReleaseTimeline.get(), 1);
    log.printFormatLine("display: %u frames shown", shown);
}

// One line on the terminal, redrawn in place until the sensor is done.
void Pipeline::progress() {
    const bool tty = isatty(STDERR_FILENO);
    int64_t lastPrint = 0;
    while (!mSensorDone) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const int64_t t = now();
        if (!tty && t - lastPrint < 1000 * kNsPerMs) continue;
        lastPrint = t;
        int made = 0, shown = 0;
        Property::tryGet(String8(kPropMade), made);
        Property::tryGet(String8(kPropShown), shown);
        const double elapsed = std::max(1e-9, (t - mStart) / 1e9);
        fprintf(stderr, "%sdemo: %d/%lld frames made, %d shown, %.1f fps, %lld dropped%s",
                tty ? "\r" : "", made, static_cast<long long>(mFramesPlanned), shown,
                shown / elapsed, static_cast<long long>(mDroppedAtSensor + mDroppedAtDisplay),
                tty ? "  " : "\n");
    }
    if (tty) fprintf(stderr, "\n");
}

void Pipeline::run() {
    mFramesPlanned = std::max<int64_t>(1, std::llround(mOptions.fps * mOptions.seconds));
    const int64_t interval = static_cast<int64_t>(std::llround(1e9 / mOptions.fps));
    Property::set(
            String8(kPropProcessUs),
            String8(std::to_string(std::min<int64_t>(interval / 3, 8 * kNsPerMs) / 1000).c_str()));
    Property::set(String8(kPropDumpEvery), String8(std::to_string(mOptions.dumpEvery).c_str()));
    Property::set(String8(kPropShown), String8("0"));
    Property::set(String8(kPropMade), String8("0"));
    mStart = now() + 20 * kNsPerMs;
    std::thread displayThread([this] { display(); });
    std::thread processingThread([this] { processing(); });
    std::thread sensorThread([this] { sensor(); });
    progress();
    sensorThread.join();
    processingThread.join();
    displayThread.join();

    DemoResult& r = *mResult;
    r.start = mStart;
    r.framesIn = mFramesPlanned;
    r.framesShown = static_cast<int64_t>(mShown.size());
    r.droppedAtSensor = mDroppedAtSensor;
    r.droppedAtDisplay = mDroppedAtDisplay;
    r.fencesMade = mFencesMade;
    r.fencesMerged = mFencesMerged;
    r.releases = std::move(mReleases);
    r.shownFrames = std::move(mShown);
    r.dumps = std::move(mDumps);
    r.stages.clear();
    for (int s = 0; s < kStageCount; ++s) {
        StageTimes merged{kStageNames[s], {}, 0, 0};
        for (ThreadLog* t : {&mSensorLog, &mProcessingLog, &mDisplayLog}) {
            const StageTimes& part = t->stages[s];
            merged.wall.insert(merged.wall.end(), part.wall.begin(), part.wall.end());
            merged.cpu += part.cpu;
            merged.frames += part.frames;
        }
        r.stages.push_back(std::move(merged));
    }
    r.threads = {mSensorLog.trace, mProcessingLog.trace, mDisplayLog.trace};
}

// What CLI11 cannot check: the size's shape and the format's name.
bool checkOptions(const std::string& size, DemoOptions* o, std::string* error) {
    if (!size.empty()) {
        uint64_t w = 0, h = 0;
        if (!parseSize(size, &w, &h) || w < 16 || h < 16 || w > 8192 || h > 8192) {
            *error = "bad value for --size: '" + size + "' (WxH, 16 to 8192 each)";
            return false;
        }
        o->width = static_cast<int>(w);
        o->height = static_cast<int>(h);
    }
    const auto map = Fmt::getMapper();
    const auto fmt = findFormat(map, o->formatName, &o->format);
    // The overlays draw into an 8-bit luma plane first in the buffer.
    const int luma8[] = {Fmt::eImgFmt_NV21, Fmt::eImgFmt_NV12, Fmt::eImgFmt_YV12,
                         Fmt::eImgFmt_I420, Fmt::eImgFmt_NV16, Fmt::eImgFmt_NV61,
                         Fmt::eImgFmt_YV16, Fmt::eImgFmt_I422, Fmt::eImgFmt_Y8};
    if (fmt == nullptr ||
        std::find(std::begin(luma8), std::end(luma8), o->format) == std::end(luma8)) {
        *error = "format '" + o->formatName +
                 "' is not one the demo draws (NV21, NV12, YV12, I420, NV16, NV61, YV16, I422, Y8)";
        return false;
    }
    o->formatName = fmt->getName();
    std::transform(o->formatName.begin(), o->formatName.end(), o->formatName.begin(), ::tolower);
    return true;
}

// Stamp settings are read when a DebugDrawID is built: place the stamp where it fits.
void configureStamp(const DemoOptions& o) {
    const StampGeometry g = stampGeometryFor(o.width, o.height, kStampDigits);
    const std::pair<const char*, unsigned> props[] = {
            {"debug.cam.drawid", 1},           {"debug.cam.drawid.digit", g.digits},
            {"debug.cam.drawid.x", g.x},       {"debug.cam.drawid.y", g.y},
            {"debug.cam.drawid.size", g.size}, {"debug.cam.drawid.bg", g.bg},
            {"debug.cam.drawid.fg", g.fg}};
    for (const auto& [key, value] : props) property_set(key, std::to_string(value).c_str());
}

double ms(double ns) {
    return ns / 1e6;
}

void printSummary(const DemoOptions& o, const DemoResult& r, const ReportSummary& report) {
    const std::vector<double> errors = [&] {
        std::vector<double> e = intervalErrorsMs(r, o.fps);
        std::sort(e.begin(), e.end());
        return e;
    }();
    const double fps = fpsAchieved(r);
    printf("\n%s %dx%d at %.3g fps for %.3g s: %d buffers, dump every %d, jitter 0-%.3g ms\n",
           o.formatName.c_str(), o.width, o.height, o.fps, o.seconds, o.buffers, o.dumpEvery,
           o.jitterMs);
    printf("%-28s %lld\n", "frames in", static_cast<long long>(r.framesIn));
    printf("%-28s %lld\n", "frames shown", static_cast<long long>(r.framesShown));
    printf("%-28s %lld (no buffer %lld, late %lld)\n", "frames dropped",
           static_cast<long long>(r.droppedAtSensor + r.droppedAtDisplay),
           static_cast<long long>(r.droppedAtSensor), static_cast<long long>(r.droppedAtDisplay));
    printf("%-28s %.2f (asked %.3g)\n", "fps achieved", fps, o.fps);
    printf("%-28s %.3f ms\n", "frame-interval error p50", percentile(errors, 50));
    printf("%-28s %.3f ms\n", "frame-interval error p99", percentile(errors, 99));
    printf("%-16s %8s %10s %10s %14s\n", "stage", "frames", "p50 ms", "p99 ms", "cpu ms/frame");
    for (const StageTimes& s : r.stages) {
        std::vector<double> wall = s.wall;
        std::sort(wall.begin(), wall.end());
        printf("%-16s %8lld %10.3f %10.3f %14.3f\n", s.name.c_str(),
               static_cast<long long>(s.frames), ms(percentile(wall, 50)), ms(percentile(wall, 99)),
               s.frames ? ms(static_cast<double>(s.cpu) / s.frames) : 0.0);
    }
    printf("%-28s %zu (frame ID read back from %d of %d decoded)\n", "dumps written",
           r.dumps.size(), report.idMatched, report.decoded);
    printf("%-28s %lld made, %lld merged\n", "fences", static_cast<long long>(r.fencesMade),
           static_cast<long long>(r.fencesMerged));
    printf("%-28s %d before, %d after\n", "descriptors open", r.descriptorsBefore,
           r.descriptorsAfter);
}

// The library's lines of a run with --log: written as the host's liblog writes them on stderr
// ("TAG L MM-DD HH:MM:SS  PID   TID message"), to stderr and to the log file alike.
FILE* sLogFile = nullptr;
std::mutex sLogLock;

void teeLogger(const __android_logger_data* m, const char* message) {
    static const char kLevels[] = "??VDIWEF";
    const char level = m->priority >= 0 && m->priority < 8 ? kLevels[m->priority] : '?';
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
    char head[128];
    snprintf(head, sizeof(head), "%s %c %s %5d %5d ", m->tag ? m->tag : "nullptr", level, stamp,
             getpid(), static_cast<int>(gettid()));
    std::lock_guard<std::mutex> lock(sLogLock);
    fprintf(stderr, "%s%s\n", head, message);
    if (sLogFile != nullptr) fprintf(sLogFile, "%s%s\n", head, message);
}

int run(DemoOptions o, const std::string& size) {
    std::string error;
    if (!checkOptions(size, &o, &error)) return badArgument("demo", error);
    if (!zorcam_util::makeOutputDir("demo", o.out)) return 1;
    std::unique_ptr<FILE, int (*)(FILE*)> logFile(nullptr, fclose);
    if (!o.log.empty()) {
        logFile.reset(fopen(o.log.c_str(), "w"));
        if (logFile == nullptr)
            return badArgument("demo", "cannot write --log " + o.log + ": " + strerror(errno));
        sLogFile = logFile.get();
        __android_log_set_logger(teeLogger);
        // What the report reads: the frame controller's per-frame lines (its log-level
        // property, read when the controller is made), the profiles' debug lines (the unified
        // logger's level) and liblog's debug lines, which a host drops unless asked. The
        // meters' lines need the camera log level at 3 or more, which is read when the library
        // loads: set persist.vendor.zor.camera.log_level beforehand to have them.
        property_set("debug.camera.fctrl.loglevel", "2");
        NSCam::Utils::ULog::ULogger::sDetailsLevel = std::max<uint32_t>(
                NSCam::Utils::ULog::ULogger::sDetailsLevel, NSCam::Utils::ULog::DETAILS_DEBUG);
        __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    }
    ULogPrinter log(kLibraryModule, kTag, NSCam::Utils::ULog::DETAILS_INFO);
    log.printFormatLine("demo: %s %dx%d, %.3g fps, %.3g s, report in %s", o.formatName.c_str(),
                        o.width, o.height, o.fps, o.seconds, o.out.c_str());
    configureStamp(o);
    DemoResult result;
    // Without the kernel's sw_sync driver, fences are emulated with one epoll descriptor kept
    // for the life of the process from the first timeline on: make it before counting.
    close(sw_sync_timeline_create());
    settleFences();
    result.descriptorsBefore = openDescriptors();
    {
        using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;
        sp<HostCamDump> service = new HostCamDump(o.out);
        service->registerAsService("internal/0");
        Pipeline pipeline(o, &result);
        const bool allocated = pipeline.allocate(&error);
        if (allocated) pipeline.run();
        android::hardware::host::unregisterService(HostCamDump::descriptor, "internal/0");
        if (!allocated) {
            fprintf(stderr, "zorcam-util demo: %s\n", error.c_str());
            return 1;
        }
    }
    settleFences();
    ReportSummary report;
    // Counted once the pipeline is gone, so that the report can show it too.
    result.descriptorsAfter = openDescriptors();
    const bool reported = writeDemoReport(o, result, &report, &error);
    printSummary(o, result, report);
    log.printLine("demo: done");
    if (logFile != nullptr) {
        std::lock_guard<std::mutex> lock(sLogLock);
        sLogFile = nullptr;
    }
    if (!reported) {
        fprintf(stderr, "zorcam-util demo: %s\n", error.c_str());
        return 1;
    }
    printf("report: %s\n", (std::filesystem::path(o.out) / "index.html").c_str());
    return 0;
}

const Command sDemo(
        "demo", "A synthetic camera preview through every subsystem, with a report.",
        [](CLI::App& command) -> Command::Runner {
            auto o = std::make_shared<DemoOptions>();
            auto size = std::make_shared<std::string>();
            command.add_option("--fps", o->fps, "frame rate (default 30)")
                    ->check(CLI::Range(1.0, 240.0));
            command.add_option("--seconds", o->seconds, "length of the run (default 5)")
                    ->check(CLI::Range(0.1, 3600.0));
            command.add_option("--size", *size, "frame size, WxH (default 1920x1080)");
            command.add_option("--format", o->formatName, "image format (default NV21)");
            command.add_option("--buffers", o->buffers, "buffers in the pool (default 6)")
                    ->check(CLI::Range(2, 64));
            command.add_option("--dump-every", o->dumpEvery,
                               "dump every Nth shown frame, 0 for none (default 10)")
                    ->check(CLI::Range(0, 1000000));
            command.add_option("--jitter-ms", o->jitterMs, "capture jitter, 0 to J ms (default 3)")
                    ->check(CLI::Range(0.0, 100.0));
            command.add_option("--out", o->out, "report folder (default zorcam-demo)")
                    ->check([](const std::string& v) {
                        return v.empty() ? std::string("an empty folder name") : std::string();
                    });
            command.add_option("--log", o->log,
                               "also write the library's log lines to this file, with the "
                               "levels that `zorcam-util report` reads");
            return [o, size] { return run(*o, *size); };
        });

}  // namespace

double fpsAchieved(const DemoResult& r) {
    if (r.releases.size() < kDemoWarmup + 2) return 0;
    const double span = (r.releases.back() - r.releases[kDemoWarmup]) / 1e9;
    return span > 0 ? (r.releases.size() - kDemoWarmup - 1) / span : 0;
}

std::vector<double> intervalErrorsMs(const DemoResult& r, double fps) {
    std::vector<double> errors;
    const double interval = 1e9 / fps;
    for (size_t i = kDemoWarmup + 1; i < r.releases.size(); ++i)
        errors.push_back(std::fabs(r.releases[i] - r.releases[i - 1] - interval) / 1e6);
    return errors;
}

}  // namespace zorcam_util
