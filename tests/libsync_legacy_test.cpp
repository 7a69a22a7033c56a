// Code written for an older platform includes <android/sync.h>, which no longer declares the
// older information calls, and declares them itself. That must compile and link against the
// host libsync: the header may not declare them too.

#include <android/sync.h>
#include <android/sw_sync.h>

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

// The calls share their names with their structures, as in C; -Wshadow objects in C++.
#pragma GCC diagnostic ignored "-Wshadow"
extern "C" {
struct sync_pt_info {
    uint32_t len;
    char obj_name[32];
    char driver_name[32];
    int32_t status;
    uint64_t timestamp_ns;
    uint8_t driver_data[0];
};

struct sync_fence_info_data {
    uint32_t len;
    char name[32];
    int32_t status;
    uint8_t pt_info[0];
};

struct sync_fence_info_data* sync_fence_info(int fd);
struct sync_pt_info* sync_pt_info(struct sync_fence_info_data* info, struct sync_pt_info* itr);
void sync_fence_info_free(struct sync_fence_info_data* info);
}

namespace {

TEST(LibsyncLegacyTest, OwnDeclarationsReachTheLibrary) {
    const int timeline = sw_sync_timeline_create();
    ASSERT_GE(timeline, 0);
    const int fence = sw_sync_fence_create(timeline, "legacy", 1);
    ASSERT_GE(fence, 0);
    ASSERT_EQ(sw_sync_timeline_inc(timeline, 1), 0);

    struct sync_fence_info_data* info = sync_fence_info(fence);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(strncmp(info->name, "sw_sync-", 8), 0) << info->name;  // as the kernel names it
    EXPECT_EQ(info->status, 1);
    int points = 0;
    for (struct sync_pt_info* pt = sync_pt_info(info, nullptr); pt != nullptr;
         pt = sync_pt_info(info, pt), ++points) {
        EXPECT_STREQ(pt->driver_name, "sw_sync");
        EXPECT_EQ(pt->status, 1);
    }
    EXPECT_EQ(points, 1);
    sync_fence_info_free(info);
    close(fence);
    close(timeline);
}

}  // namespace
