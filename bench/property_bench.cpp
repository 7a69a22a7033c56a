// Property::tryGet(key, int&) against a std::shared_mutex over an unordered_map of strings, with
// one and with two reader threads. Compare ns per call (one thread) and items_per_second
// (aggregate across threads) between the two rows of each pair.

#include <zorcam/utils/std/Property.h>

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

namespace {

constexpr int kKeys = 32;
constexpr const char* kReadKey = "vendor.camera.key.17";

std::string keyName(int i) {
    return "vendor.camera.key." + std::to_string(i);
}

// The baseline: the plain C++ reader-writer map with the same decimal conversion.
class SharedMutexStore {
public:
    void set(const std::string& key, const std::string& value) {
        std::unique_lock<std::shared_mutex> lock(mLock);
        mMap[key] = value;
    }
    bool tryGet(const std::string& key, int& value) const {
        std::shared_lock<std::shared_mutex> lock(mLock);
        const auto it = mMap.find(key);
        if (it == mMap.end() || it->second.empty()) return false;
        char* end = nullptr;
        errno = 0;
        const long parsed = strtol(it->second.c_str(), &end, 10);
        if (*end != '\0') return false;
        value = static_cast<int>(parsed);
        return true;
    }

private:
    mutable std::shared_mutex mLock;
    std::unordered_map<std::string, std::string> mMap;
};

SharedMutexStore& baselineStore() {
    static SharedMutexStore* sStore = [] {
        auto* store = new SharedMutexStore();
        for (int i = 0; i < kKeys; ++i) store->set(keyName(i), std::to_string(i * 1000));
        return store;
    }();
    return *sStore;
}

void fillProperties() {
    static const bool sFilled = [] {
        for (int i = 0; i < kKeys; ++i) {
            NSCam::Utils::Property::set(android::String8(keyName(i).c_str()),
                                        android::String8(std::to_string(i * 1000).c_str()));
        }
        return true;
    }();
    (void)sFilled;
}

void BM_PropertyTryGetInt(benchmark::State& state) {
    if (state.thread_index() == 0) fillProperties();
    const android::String8 key(kReadKey);
    int value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(NSCam::Utils::Property::tryGet(key, value));
        benchmark::DoNotOptimize(value);
    }
    if (value != 17000) state.SkipWithError("wrong value read");
    state.SetItemsProcessed(state.iterations());
}

void BM_SharedMutexMapTryGetInt(benchmark::State& state) {
    SharedMutexStore& store = baselineStore();
    const std::string key(kReadKey);
    int value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.tryGet(key, value));
        benchmark::DoNotOptimize(value);
    }
    if (value != 17000) state.SkipWithError("wrong value read");
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_PropertyTryGetInt)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_SharedMutexMapTryGetInt)->Threads(1)->Threads(2)->UseRealTime();

BENCHMARK_MAIN();
