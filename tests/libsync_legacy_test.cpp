// Code written for an older platform includes <android/sync.h>, which no longer declares the
// older information calls, and declares them itself. That must compile and link against the
// host libsync: the header may not declare them too.

#include <android/sync.h>
#include <android/sw_sync.h>

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

// Not a check of the information itself (libsync_test has that), only that these declarations
// reach the library's calls and read its records where they lie.
TEST(LibsyncLegacyTest, OwnDeclarationsReachTheLibrary) {
    const int timeline = sw_sync_timeline_create();
    const int fence = sw_sync_fence_create(timeline, "legacy", 1);
    struct sync_fence_info_data* info = sync_fence_info(fence);
    ASSERT_NE(info, nullptr);
    struct sync_pt_info* pt = sync_pt_info(info, nullptr);
    EXPECT_TRUE(pt != nullptr && strcmp(pt->driver_name, "sw_sync") == 0 &&
                sync_pt_info(info, pt) == nullptr);  // its one point
    sync_fence_info_free(info);
    close(fence);
    close(timeline);
}
