// What a camera HAL component does with libzorcam_stdutils on every frame: size the planes of
// its buffer format, allocate a plane, wait for the producer's fence, stamp the frame number
// into the picture and log a line. On a host the fence comes from a software timeline that
// another thread advances, as a producer would signal it. Exits 0 when every step worked.

#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/Format.h>
#include <zorcam/utils/std/Log.h>
#include <zorcam/utils/std/Sync.h>
#include <zorcam/utils/std/Version.h>

#include <android/log.h>
#include <sw_sync.h>
#include <sync/sync.h>
#include <android/sync_legacy.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#ifndef CONSUMER_BUILT_WITH
#define CONSUMER_BUILT_WITH "a plain compiler line"
#endif

namespace {

constexpr char kTag[] = "ZorCam/Consumer";
constexpr unsigned kWidth = 640, kHeight = 480, kFrame = 42;

int fail(const char* what) {
    fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

}  // namespace

int main() {
    namespace Format = NSCam::Utils::Format;
    using NSCam::Utils::Sync::IFence;
    printf("libzorcam_stdutils %s, built with %s\n", ZORCAM_STDUTILS_VERSION_STRING,
           CONSUMER_BUILT_WITH);

    const int format = Format::eImgFmt_NV21;
    const size_t planes = Format::queryPlaneCount(format);
    if (planes != 2) return fail("NV21 should have two planes");
    for (size_t p = 0; p < planes; ++p) {
        printf("%s plane %zu: %zux%zu, %d bits per pixel\n",
               Format::queryImageFormatName(format).c_str(), p,
               Format::queryPlaneWidthInPixels(format, p, kWidth),
               Format::queryPlaneHeightInPixels(format, p, kHeight),
               Format::queryPlaneBitsPerPixel(format, p));
    }
    const size_t stride = Format::queryPlaneWidthInPixels(format, 0, kWidth) *
                          Format::queryPlaneBitsPerPixel(format, 0) / 8;
    std::vector<char> luma(stride * Format::queryPlaneHeightInPixels(format, 0, kHeight), 0);

    const int timeline = sw_sync_timeline_create();
    if (timeline < 0) return fail("no software timeline");
    android::sp<IFence> acquire = IFence::create(sw_sync_fence_create(timeline, "acquire", 1));
    if (!acquire->isValid()) return fail("no fence");
    std::thread producer([timeline] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        sw_sync_timeline_inc(timeline, 1);
    });
    const int waited = acquire->wait(2000);
    producer.join();
    if (waited != 0) return fail("the fence did not signal");
    struct sync_fence_info_data* info = sync_fence_info(acquire->getFd());
    if (info == nullptr) return fail("sync_fence_info failed");
    printf("fence \"%s\" signalled (status %d)\n", info->name, info->status);
    sync_fence_info_free(info);
    close(timeline);

    DebugDrawID::draw(kFrame, 3, 16, 16, luma.data(), kWidth, kHeight, stride, luma.size(), 4,
                      0, static_cast<char>(255));
    const auto stamped = std::count(luma.begin(), luma.end(), static_cast<char>(255));
    if (stamped == 0) return fail("nothing stamped");
    printf("frame %u stamped: %td bytes set\n", kFrame, stamped);

    fflush(stdout);  // the log line goes to stderr on a host; keep the order readable
    if (zorcam_testLog(kTag, 'I'))
        __android_log_print(ANDROID_LOG_INFO, kTag, "[%s] frame %u done", __func__, kFrame);
    printf("ok\n");
    return 0;
}
