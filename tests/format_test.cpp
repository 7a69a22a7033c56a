// The registry's catalogue, family geometry and lines. fuzz/format_fuzz.cpp checks every
// query's answers against the descriptors and the plane rules, unknown ids' refusals and the
// verbose lines' gating; FuzzCorpus.format replays it.

#include "LogCapture.h"

#include <zorcam/utils/std/Format.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <thread>
#include <tuple>

using namespace zorcam_test;
using namespace NSCam::Utils::Format;
using NSCam::Utils::ULog::DETAILS_VERBOSE;
using Lines = std::vector<std::string>;

using FormatTest = LogCaptureTest;

namespace {
// Allocations made through operator new anywhere in the process, counted while armed.
std::atomic<bool> gCountAllocations{false};
std::atomic<int> gAllocations{0};
}  // namespace

void* operator new(size_t size) {
    if (gCountAllocations.load(std::memory_order_relaxed)) ++gAllocations;
    if (void* p = malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }

// A query on a registered id allocates nothing, verbose lines let through included.
TEST_F(FormatTest, RegisteredQueriesDoNotAllocate) {
    setULog(0x0, 6, 0x40007000);
    gCountAllocations = true;
    size_t sum = 0;
    for (int id : {0x11, 0x32315659, 0x2209, 0x1}) {
        sum += queryPlaneWidthInPixels(id, 1, 1920) + queryPlaneHeightInPixels(id, 1, 1080);
        sum += queryPlaneCount(id) + queryPlaneBitsPerPixel(id, 0) + queryImageBitsPerPixel(id);
        sum += checkValidFormat(id) + checkValidBufferInfo(id) + getMapper().size();
    }
    gCountAllocations = false;
    EXPECT_EQ(gAllocations.load(), 0);
    EXPECT_GT(sum, 0u);
}

// 82 formats of unique names, each found by its id; the compressed UFO Bayer formats alone
// have no plane sum. One member of each family, image 1921 x 1081: plane 1 (and plane 5,
// which has no range check) full or halved, with its plane count and bits.
TEST_F(FormatTest, CatalogueAndTheGeometryOfEveryFamily) {
    const ImgFmtMap map = getMapper();
    ASSERT_EQ(map.size(), 82u);
    std::set<std::string> names;
    for (size_t i = 0; i < map.size(); ++i) {
        const int id = map.keyAt(i);
        EXPECT_TRUE(names.insert(map.valueAt(i)->getName()).second) << id;
        EXPECT_TRUE(checkValidFormat(id)) << id;
        EXPECT_EQ(checkValidBufferInfo(id), id < 0x2208 || id > 0x220F) << id;
    }
    const struct { int id; const char* name; size_t planes, width1, height1, bits; } cases[] = {
            {0x32315659, "YV12", 3, 960, 540, 12}, {0x201A, "ZOR_YUV_P010", 2, 960, 540, 15},
            {0x2010, "YUV_P010", 2, 960, 540, 24}, {0x2006, "YV16", 3, 960, 1081, 16},
            {0x2017, "ZOR_YUV_P210", 2, 960, 1081, 20}, {0x200D, "YUV_P210", 2, 960, 1081, 32},
            {0x14, "YUY2", 1, 1921, 1081, 16}, {0x221B, "WARP_3PLANE", 3, 1921, 1081, 96},
            {0x2209, "UFO_BAYER10", 3, 1921, 1081, 15}, {0x2218, "BAYER22_PAK", 1, 1921, 1081, 24}};
    for (const auto& c : cases) {
        const std::vector<size_t> answers = {
                queryPlaneCount(c.id), static_cast<size_t>(queryImageBitsPerPixel(c.id)),
                queryPlaneWidthInPixels(c.id, 0, 1921), queryPlaneHeightInPixels(c.id, 0, 1081),
                queryPlaneWidthInPixels(c.id, 1, 1921), queryPlaneHeightInPixels(c.id, 1, 1081),
                queryPlaneWidthInPixels(c.id, 5, 1921)};
        EXPECT_EQ(answers, (std::vector<size_t>{c.planes, c.bits, 1921, 1081, c.width1, c.height1,
                                                c.width1})) << c.name;
        EXPECT_EQ(queryImageFormatName(c.id), c.name);
    }
}

// Every line of the registry: each call's unified lines (the registry dump's middle elided),
// all of one type.
TEST_F(FormatTest, Lines) {
    const struct { std::function<void()> call; DetailsType type; Lines lines; } calls[] = {
            {[] { queryPlaneCount(eImgFmt_YV12); }, DETAILS_VERBOSE,
             {"[queryPlaneCount] [YV12] plane count 3"}},
            {[] { queryPlaneWidthInPixels(eImgFmt_YV12, 1, 1921); }, DETAILS_VERBOSE,
             {"[queryPlaneWidthInPixels] [YV12] Width in pixels 960 @ 1-th plane"}},
            {[] { queryPlaneHeightInPixels(eImgFmt_YV12, 1, 1081); }, DETAILS_VERBOSE,
             {"[queryPlaneHeightInPixels] [YV12] Height in pixels 540 @ 1-th plane"}},
            {[] { queryPlaneBitsPerPixel(eImgFmt_YV12, 1); }, DETAILS_VERBOSE,
             {"[queryPlaneBitsPerPixel] [YV12] bits per pixel 8 @ 1-th plane"}},
            {[] { queryImageBitsPerPixel(eImgFmt_YV12); }, DETAILS_VERBOSE,
             {"[queryImageBitsPerPixel] [YV12] bits per pixel 12"}},
            {[] { checkValidFormat(0); }, NSCam::Utils::ULog::DETAILS_WARNING,
             {"[dumpMapInformation] map size is 82",
              "[dumpMapInformation] Index (0): Key = 0x1, value = RGBA8888", "(80 more)",
              "[dumpMapInformation] Index (81): Key = 0x32315659, value = YV12",
              "[checkValidFormat] Unsupported Image Format: 0"}}};
    for (const auto& c : calls) {
        c.call();
        const auto u = ulogLines();
        Lines seen;
        for (size_t i = 0; i < u.size(); ++i) {
            EXPECT_TRUE(u[i].type == c.type && u[i].tag == "ZorCam/Utils") << u[i].text;
            if (i < 2 || i + 2 >= u.size()) seen.push_back(u[i].text);
            if (i == 2 && u.size() > 4)
                seen.push_back("(" + std::to_string(u.size() - 4) + " more)");
        }
        EXPECT_EQ(seen, c.lines);
        clearLogs();
    }
}

// Camera threads query the registry and copy its map at once: every thread gets the answers
// one thread gets alone. (Lines written at once: the log front end's eight-thread test.)
TEST_F(FormatTest, EightThreadsQueryAndCopyTheMapAtOnce) {
    const ImgFmtMap map = getMapper();
    auto ask = [&map](size_t i) {
        const int id = map.keyAt(i);
        const ImgFmtMap m = getMapper();  // copied while other threads copy it too
        return std::make_tuple(m.size(), queryImageFormatName(id) == m.valueFor(id)->getName(),
                               queryPlaneCount(id), queryPlaneWidthInPixels(id, 1, 1920),
                               queryPlaneHeightInPixels(id, 1, 1080), queryImageBitsPerPixel(id),
                               queryPlaneBitsPerPixel(id, 1));
    };
    std::vector<decltype(ask(0))> alone;
    for (size_t i = 0; i < map.size(); ++i) alone.push_back(ask(i));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int round = 0; round < 10; ++round)
                for (size_t i = 0; i < alone.size(); ++i) wrong += ask(i) != alone[i];
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
}
