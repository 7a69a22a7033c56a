#include "LogCapture.h"

#include <zorcam/utils/std/Format.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace zorcam_test;
using namespace NSCam::Utils::Format;

namespace {

// Allocations made through operator new anywhere in the process, counted while armed.
std::atomic<bool> gCountAllocations{false};
std::atomic<int> gAllocations{0};

// Reads the id and the description, which no operation returns, through a subclass.
struct DescriptorFields : CBaseImgFmt {
    static int32_t id(const IImgFmt& fmt) {
        return static_cast<const DescriptorFields&>(fmt).*(&DescriptorFields::mFormat);
    }
    static std::string description(const IImgFmt& fmt) {
        return (static_cast<const DescriptorFields&>(fmt).*(&DescriptorFields::mDescription))
                .string();
    }
};

}  // namespace

void* operator new(size_t size) {
    if (gCountAllocations.load(std::memory_order_relaxed)) ++gAllocations;
    if (void* p = malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }

class FormatTest : public LogCaptureTest {};

TEST_F(FormatTest, CatalogueInvariantsAndSampleRows) {
    const ImgFmtMap map = getMapper();
    ASSERT_EQ(map.size(), 82u);
    std::set<std::string> names;
    for (size_t i = 0; i < map.size(); ++i) {
        const int id = map.keyAt(i);
        const IImgFmt& fmt = *map.valueAt(i);
        SCOPED_TRACE(fmt.getName());
        EXPECT_TRUE(i == 0 || map.keyAt(i - 1) < id) << "ids out of order";
        EXPECT_EQ(DescriptorFields::id(fmt), id);
        EXPECT_TRUE(names.insert(fmt.getName()).second) << "duplicate name";
        // The compressed UFO Bayer formats, alone, have no plane sum (format_fuzz checks the
        // sum of the others).
        EXPECT_EQ(fmt.checkValidBufferInfo(), id < 0x2208 || id > 0x220F);
        EXPECT_EQ(checkValidBufferInfo(id), fmt.checkValidBufferInfo());
        EXPECT_TRUE(checkValidFormat(id));
    }
    // A sample of rows reads back exactly as catalogued.
    const struct { int id; const char *name, *desc; size_t planes; int bits; } rows[] = {
        {0x32315659, "YV12", "YV12, 3 plane (Y)(V)(U), 420p", 3, 12},
        {0x20203859, "Y8", " 8-bit Y plane, 1 plane", 1, 8},
        {0x2218, "BAYER22_PAK", "Bayer24 pak, 24bits", 1, 24},
        {0x2210, "UFO_FG", "ufo length table, 8-bit", 1, 8},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        const android::sp<IImgFmt> fmt = getMapper().valueFor(r.id);
        ASSERT_NE(fmt, nullptr);
        EXPECT_STREQ(fmt->getName(), r.name);
        EXPECT_EQ(DescriptorFields::description(*fmt), r.desc);
        EXPECT_EQ(fmt->getPlaneCount(), r.planes);
        EXPECT_EQ(fmt->getImageBitsPerPixel(), r.bits);
        EXPECT_EQ(queryImageFormatName(r.id), r.name);
    }
}

TEST_F(FormatTest, GeometryOfEveryFamily) {
    // One member of each family, image 1921 x 1081, plane 1 (and plane 5: no range check).
    const struct { int id; size_t width1, height1; } cases[] = {
        {0x32315659, 960, 540}, {0x201A, 960, 540}, {0x2010, 960, 540},    // 4:2:0, 12/15/24 bits
        {0x2006, 960, 1081}, {0x2017, 960, 1081}, {0x200D, 960, 1081},   // 4:2:2, 16/20/32 bits
        {0x14, 1921, 1081}, {0x221B, 1921, 1081}, {0x2209, 1921, 1081},  // plain, warp, UFO Bayer
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(queryImageFormatName(c.id));
        EXPECT_EQ(queryPlaneWidthInPixels(c.id, 0, 1921), 1921u);
        EXPECT_EQ(queryPlaneHeightInPixels(c.id, 0, 1081), 1081u);
        EXPECT_EQ(queryPlaneWidthInPixels(c.id, 1, 1921), c.width1);
        EXPECT_EQ(queryPlaneHeightInPixels(c.id, 1, 1081), c.height1);
        EXPECT_EQ(queryPlaneWidthInPixels(c.id, 5, 1921), c.width1);
    }
}

TEST_F(FormatTest, UnknownIdsDumpTheRegistryAndFail) {
    setULog(0x2, 2, 0x40007000);
    EXPECT_FALSE(checkValidFormat(0));
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 84u);
    EXPECT_EQ(u[0].text, "[dumpMapInformation] map size is 82");
    EXPECT_EQ(u[1].text, "[dumpMapInformation] Index (0): Key = 0x1, value = RGBA8888");
    EXPECT_EQ(u[12].text, "[dumpMapInformation] Index (11): Key = 0x1000, value = NV12");
    EXPECT_EQ(u[82].text, "[dumpMapInformation] Index (81): Key = 0x32315659, value = YV12");
    EXPECT_EQ(u[83].text, "[checkValidFormat] Unsupported Image Format: 0");
    for (const auto& line : u) EXPECT_EQ(line.type, NSCam::Utils::ULog::DETAILS_WARNING);

    // Every query answers an unknown id with its failure value, the dump and its own line.
    const std::pair<const char*, std::function<bool()>> queries[] = {
            {"checkValidFormat", [] { return !checkValidFormat(-1); }},
            {"queryImageFormatName", [] { return queryImageFormatName(-1) == "unknown"; }},
            {"queryPlaneCount", [] { return queryPlaneCount(-1) == 0; }},
            {"queryPlaneWidthInPixels", [] { return queryPlaneWidthInPixels(-1, 0, 64) == 0; }},
            {"queryPlaneHeightInPixels", [] { return queryPlaneHeightInPixels(-1, 0, 64) == 0; }},
            {"queryPlaneBitsPerPixel", [] { return queryPlaneBitsPerPixel(-1, 0) == 0; }},
            {"queryImageBitsPerPixel", [] { return queryImageBitsPerPixel(-1) == 0; }},
            {"checkValidBufferInfo", [] { return !checkValidBufferInfo(-1); }}};
    for (const auto& [name, failed] : queries) {
        clearLogs();
        EXPECT_TRUE(failed()) << name;
        ASSERT_EQ(ulogLines().size(), 84u) << name;
        EXPECT_EQ(ulogLines().back().text,
                  std::string("[") + name + "] Unsupported Image Format: 0xffffffff");
    }
}

TEST_F(FormatTest, RegisteredQueriesDoNotAllocate) {
    setULog(0x0, 6, 0x40007000);
    gAllocations = 0;
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

// Camera threads query the registry and copy its map at once. Every thread gets the answers
// one thread gets alone, and each query writes its verbose line exactly once, to the unified
// logger only.
TEST_F(FormatTest, EightThreadsQueryAndCopyTheMapAtOnce) {
    constexpr int kThreads = 8, kRounds = 10;
    const ImgFmtMap map = getMapper();
    auto ask = [](int id) {
        return std::vector<int64_t>{
                static_cast<int64_t>(queryPlaneCount(id)),
                static_cast<int64_t>(queryPlaneWidthInPixels(id, 1, 1920)),
                static_cast<int64_t>(queryPlaneHeightInPixels(id, 1, 1080)),
                queryImageBitsPerPixel(id), queryPlaneBitsPerPixel(id, 1), checkValidFormat(id)};
    };
    std::vector<std::vector<int64_t>> alone;
    for (size_t i = 0; i < map.size(); ++i) alone.push_back(ask(map.keyAt(i)));
    clearLogs();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round)
                for (size_t i = 0; i < alone.size(); ++i) {
                    const int id = map.keyAt(i);
                    const ImgFmtMap copy = getMapper();
                    const android::sp<IImgFmt> f = copy.valueFor(id);
                    wrong += copy.size() != alone.size() || f == nullptr ||
                             queryImageFormatName(id) != f->getName() || ask(id) != alone[i];
                }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(androidLines().empty());
    std::map<std::string, int> seen;
    for (const auto& l : ulogLines()) {
        ++seen[l.text];
        wrong += l.type != NSCam::Utils::ULog::DETAILS_VERBOSE || l.tag != "ZorCam/Utils";
    }
    EXPECT_EQ(wrong.load(), 0) << "lines of another type or tag";
    EXPECT_EQ(seen.size(), 5 * alone.size());
    for (const auto& [text, n] : seen) EXPECT_EQ(n, kThreads * kRounds) << text;
    for (const char* text : {"[queryPlaneCount] [YV12] plane count 3",
                             "[queryPlaneWidthInPixels] [YV12] Width in pixels 960 @ 1-th plane",
                             "[queryPlaneHeightInPixels] [YV12] Height in pixels 540 @ 1-th plane",
                             "[queryImageBitsPerPixel] [YV12] bits per pixel 12",
                             "[queryPlaneBitsPerPixel] [YV12] bits per pixel 8 @ 1-th plane"})
        EXPECT_EQ(seen.count(text), 1u) << text;
    EXPECT_EQ(getMapper().size(), 82u);  // no copy changed the registry
}
