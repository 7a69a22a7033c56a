// Software timelines as a program gets them: from the kernel's sw_sync driver on the kernel
// stage's machine (ZORCAM_KERNEL_STAGE=1), from the in-process emulation elsewhere. Unlike
// libsync_test, nothing here forces the emulation.

#include <android/sw_sync.h>
#include <android/sync.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

namespace {

// On the kernel stage a timeline is the driver's debugfs file, elsewhere the emulation's pipe;
// its fences name the driver and the timeline as the kernel does (after the task that opened it).
TEST(SwSyncTest, TimelinesComeFromTheKernelDriverOnlyOnTheKernelStage) {
    const int timeline = sw_sync_timeline_create();
    const int fence = sw_sync_fence_create(timeline, "proof", 1);
    struct sync_file_info* info = sync_file_info(fence);
    ASSERT_TRUE(info != nullptr && info->num_fences == 1u);
    char comm[17] = {}, link[64] = {};
    prctl(PR_GET_NAME, comm);
    EXPECT_STREQ(sync_get_fence_info(info)[0].driver_name, "sw_sync");
    EXPECT_STREQ(sync_get_fence_info(info)[0].obj_name, comm);
    EXPECT_EQ(std::string(info->name).rfind("sw_sync-" + std::string(comm), 0), 0u) << info->name;
    const std::string self = "/proc/self/fd/" + std::to_string(timeline);
    ASSERT_GT(readlink(self.c_str(), link, sizeof(link) - 1), 0);
    const char* stage = getenv("ZORCAM_KERNEL_STAGE");
    if (stage != nullptr && strcmp(stage, "1") == 0) {
        EXPECT_STREQ(link, "/sys/kernel/debug/sync/sw_sync");
    } else {
        EXPECT_EQ(std::string(link).rfind("pipe:", 0), 0u) << link << " is no emulated timeline";
        printf("software timelines here: the in-process emulation\n");
    }
    sync_file_info_free(info);
    close(fence);
    close(timeline);
}

// The child of the test below: a thread advances the timeline to the first fence and finds the
// second pending, while the main thread waits without limit for the first; then the timeline is
// closed with the second pending, which signals it with an error. Tells what it saw.
[[noreturn]] void waitForAnAdvanceThenClose() {
    alarm(30);  // a wait that never ends fails the test instead of hanging it
    const int timeline = sw_sync_timeline_create();
    const int first = sw_sync_fence_create(timeline, "first", 100);
    const int second = sw_sync_fence_create(timeline, "second", 200);
    std::atomic<int> advanced{-1}, polled{-2};  // -2: not yet
    std::thread signaller([&] {
        advanced = sw_sync_timeline_inc(timeline, 100);
        struct pollfd pfd = {second, POLLIN, 0};
        polled = poll(&pfd, 1, 0);  // 0: the fence at 200 is still pending
    });
    const int waited = sync_wait(first, -1);
    while (polled == -2) usleep(1000);
    close(timeline);
    signaller.join();
    // The close ends a wait on the pending point, whether it came before the wait (here) or
    // during it (the third fence, whose timeline another thread closes while the wait runs).
    const int afterClose = sync_wait(second, -1);
    struct sync_file_info* info = sync_file_info(second);
    const int status = info != nullptr ? info->status : 1;
    sync_file_info_free(info);
    const int other = sw_sync_timeline_create();
    const int third = sw_sync_fence_create(other, "third", 1);
    std::thread closer([other] {
        usleep(20000);
        close(other);
    });
    const int duringWait = sync_wait(third, -1);
    closer.join();
    fprintf(stderr, "waited %d, advanced %d, polled %d, then wait %d status %d, closed %d\n",
            waited, advanced.load(), polled.load(), afterClose, status, duringWait);
    _exit(0);
}

TEST(SwSyncTest, AWaitWithoutLimitEndsWhenAnotherThreadAdvances) {
    EXPECT_EXIT(waitForAnAdvanceThenClose(), ::testing::ExitedWithCode(0),
                "waited 0, advanced 0, polled 0, then wait 0 status -[1-9][0-9]*, closed 0");
}

}  // namespace
