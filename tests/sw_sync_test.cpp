// Software timelines as a program gets them: from the kernel's sw_sync driver on the kernel
// stage's machine (ZORCAM_KERNEL_STAGE=1), from the in-process emulation elsewhere. Unlike
// libsync_test, nothing here forces the emulation.

#include <android/sw_sync.h>
#include <android/sync.h>

#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <iostream>
#include <fstream>
#include <string>
#include <thread>

namespace {

bool onKernelStage() {
    const char* stage = getenv("ZORCAM_KERNEL_STAGE");
    return stage != nullptr && strcmp(stage, "1") == 0;
}

std::string linkOf(int fd) {
    char target[256] = {};
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return readlink(path.c_str(), target, sizeof(target) - 1) > 0 ? target : "";
}

bool pollReadable(int fd) {
    struct pollfd pfd = {fd, POLLIN, 0};
    return poll(&pfd, 1, 0) == 1 && (pfd.revents & POLLIN) != 0;
}

// On the kernel stage a timeline is the driver's debugfs file and its fences name the driver
// and the timeline as the kernel does (after the task that opened it); elsewhere a timeline is
// the emulation's pipe.
TEST(SwSyncTest, TimelinesComeFromTheKernelDriverOnlyOnTheKernelStage) {
    const int timeline = sw_sync_timeline_create();
    ASSERT_GE(timeline, 0);
    const int fence = sw_sync_fence_create(timeline, "proof", 1);
    ASSERT_GE(fence, 0);
    struct sync_file_info* info = sync_file_info(fence);
    ASSERT_NE(info, nullptr);
    ASSERT_EQ(info->num_fences, 1u);
    const struct sync_fence_info& record = sync_get_fence_info(info)[0];
    std::ifstream commFile("/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/comm");
    std::string comm;
    std::getline(commFile, comm);
    EXPECT_STREQ(record.driver_name, "sw_sync");
    EXPECT_EQ(std::string(record.obj_name), comm);
    EXPECT_EQ(std::string(info->name).rfind("sw_sync-" + comm, 0), 0u) << info->name;
    struct stat st {};
    ASSERT_EQ(fstat(timeline, &st), 0);
    if (onKernelStage()) {
        EXPECT_EQ(linkOf(timeline), "/sys/kernel/debug/sync/sw_sync");
        EXPECT_FALSE(S_ISFIFO(st.st_mode));
    } else {
        EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "a timeline is the emulation's pipe here";
        std::cout << "software timelines here: the in-process emulation\n";
    }
    sync_file_info_free(info);
    close(fence);
    close(timeline);
}

// A fence signalled from another thread wakes a wait without limit; closing the timeline with a
// point still pending signals it with an error. Runs in a child, so that a wait that never ends
// fails the test instead of hanging it.
TEST(SwSyncTest, AWaitWithoutLimitEndsWhenAnotherThreadAdvances) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const int timeline = sw_sync_timeline_create();
        const int first = sw_sync_fence_create(timeline, "first", 100);
        const int second = sw_sync_fence_create(timeline, "second", 200);
        if (timeline < 0 || first < 0 || second < 0) _exit(10);
        int advanced = -1;
        bool secondPending = false;
        std::atomic<bool> polled{false};
        std::thread signaller([&] {
            advanced = sw_sync_timeline_inc(timeline, 100);
            secondPending = !pollReadable(second);
            polled = true;
        });
        const int waited = sync_wait(first, -1);
        while (!polled) usleep(1000);
        close(timeline);
        signaller.join();
        // The pending point ends with the timeline, in error. (The emulation learns of the
        // close at its next call, here sync_file_info; the kernel at once.)
        struct sync_file_info* info = sync_file_info(second);
        const int status = info != nullptr ? info->status : 1;
        sync_file_info_free(info);
        const int afterClose = sync_wait(second, 5000);
        if (waited != 0) _exit(11);
        if (advanced != 0) _exit(12);
        if (!secondPending) _exit(13);
        if (afterClose != 0) _exit(14);
        if (status >= 0) _exit(15);
        _exit(0);
    }
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 3000 && done == 0; ++i) {  // 30 s at most
        done = waitpid(child, &status, WNOHANG);
        if (done == 0) usleep(10000);
    }
    if (done == 0) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        FAIL() << "the wait did not end within 30 s";
    }
    ASSERT_TRUE(WIFEXITED(status)) << "child ended by signal " << WTERMSIG(status);
    const char* const what[] = {"", "", "", "", "", "", "", "", "", "",
                                "a timeline or fence could not be made",
                                "sync_wait on the fence at 100 failed",
                                "the advance by 100 failed",
                                "the fence at 200 was not pending after the advance",
                                "the fence at 200 did not signal when its timeline closed",
                                "the fence at 200 did not end in error"};
    const int code = WEXITSTATUS(status);
    EXPECT_EQ(code, 0) << (code < 16 ? what[code] : "unexpected exit");
}

}  // namespace
