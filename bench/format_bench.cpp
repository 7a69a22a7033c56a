// Format queries against a plain binary search over the same ids, and the cost of taking a
// copy of the registry's map as against copying a map of growing size.

#include <zorcam/ulog/ULog.h>
#include <zorcam/utils/std/Format.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

using namespace NSCam::Utils::Format;

namespace {

std::vector<int> registeredIds() {
    const ImgFmtMap map = getMapper();
    std::vector<int> ids;
    for (size_t i = 0; i < map.size(); ++i) ids.push_back(map.keyAt(i));
    return ids;
}

// The ids in a fixed scrambled order, so neither side is helped by a predictable pattern.
std::vector<int> queryOrder() {
    std::vector<int> ids = registeredIds();
    std::vector<int> order;
    for (size_t i = 0, j = 0; i < ids.size(); ++i, j = (j + 37) % ids.size())
        order.push_back(ids[j]);
    return order;
}

void BM_LowerBoundBaseline(benchmark::State& state) {
    const std::vector<int> sorted = registeredIds();
    const std::vector<int> order = queryOrder();
    size_t k = 0;
    for (auto _ : state) {
        const int id = order[k];
        k = k + 1 == order.size() ? 0 : k + 1;
        auto it = std::lower_bound(sorted.begin(), sorted.end(), id);
        benchmark::DoNotOptimize(it);
    }
}
BENCHMARK(BM_LowerBoundBaseline);

void BM_QueryPlaneWidthInPixels(benchmark::State& state) {
    NSCam::Utils::ULog::ULogger::sDetailsLevel = 2;  // verbose lines gated off
    const std::vector<int> order = queryOrder();
    size_t k = 0;
    for (auto _ : state) {
        const int id = order[k];
        k = k + 1 == order.size() ? 0 : k + 1;
        benchmark::DoNotOptimize(queryPlaneWidthInPixels(id, 1, 1920));
    }
}
BENCHMARK(BM_QueryPlaneWidthInPixels);

// The same lookup through a shared copy of the map and a strong pointer, for comparison.
void BM_LookupThroughMapCopy(benchmark::State& state) {
    const std::vector<int> order = queryOrder();
    size_t k = 0;
    for (auto _ : state) {
        const int id = order[k];
        k = k + 1 == order.size() ? 0 : k + 1;
        const android::sp<IImgFmt> fmt = getMapper().valueFor(id);
        benchmark::DoNotOptimize(fmt->getPlaneWidthInPixels(1, 1920));
    }
}
BENCHMARK(BM_LookupThroughMapCopy);

void BM_GetMapper(benchmark::State& state) {
    for (auto _ : state) {
        ImgFmtMap copy = getMapper();
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_GetMapper);

// Copy construction of the same map type holding N entries: constant if storage is shared.
void BM_MapCopyByEntries(benchmark::State& state) {
    const ImgFmtMap registry = getMapper();
    ImgFmtMap map(android::sp<IImgFmt>{});
    for (int64_t i = 0; i < state.range(0); ++i)
        map.add(static_cast<int>(i), registry.valueAt(static_cast<size_t>(i) % registry.size()));
    for (auto _ : state) {
        ImgFmtMap copy(map);
        benchmark::DoNotOptimize(copy);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_MapCopyByEntries)->RangeMultiplier(8)->Range(8, 8 << 9)->Complexity();

}  // namespace

BENCHMARK_MAIN();
