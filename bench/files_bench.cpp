// Whole-buffer files and dumps, 12 MB (one 4000x3000 8-bit plane):
//   SaveBufToFile vs PlainWriteLoop: the same bytes to the same tmpfs file.
//   SaveBufToSDFile through the host dump service vs Memcpy: the one copy into shared memory
//   that the dump adds on the caller's side (the service's own write is PlainWriteLoop).
//   SaveBufToSDFile vs MemcpyThenSaveBufToFile: the least a dump can cost, one copy and one
//   write of the same bytes to tmpfs; the dump should stay within 3x of it.

#include <zorcam/utils/std/Misc.h>

#include <android/hidl/allocator/1.0/IAllocator.h>
#include <hidlmemory/mapping.h>
#include <vendor/velmora/hardware/camera/camdump/1.0/HostCamDump.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace {

constexpr size_t kBytes = 12 * 1000 * 1000;
const std::string kFile = "/dev/shm/zorcam_files_bench.raw";
const std::string kRoot = "/dev/shm/zorcam_files_bench_root";

std::vector<unsigned char>& buffer() {
    static std::vector<unsigned char> sBuffer = [] {
        std::vector<unsigned char> v(kBytes);
        for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<unsigned char>(i * 31);
        return v;
    }();
    return sBuffer;
}

void BM_SaveBufToFile(benchmark::State& state) {
    auto& buf = buffer();
    for (auto _ : state) {
        if (!NSCam::Utils::saveBufToFile(kFile.c_str(), buf.data(), buf.size())) {
            state.SkipWithError("saveBufToFile failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
    unlink(kFile.c_str());
}
BENCHMARK(BM_SaveBufToFile)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_PlainWriteLoop(benchmark::State& state) {
    auto& buf = buffer();
    for (auto _ : state) {
        const int fd = open(kFile.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0704);
        if (fd < 0) {
            state.SkipWithError("open failed");
            break;
        }
        size_t done = 0;
        while (done < buf.size()) {
            const ssize_t n = write(fd, buf.data() + done, buf.size() - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        close(fd);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
    unlink(kFile.c_str());
}
BENCHMARK(BM_PlainWriteLoop)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_SaveBufToSDFile(benchmark::State& state) {
    using vendor::velmora::hardware::camera::camdump::V1_0::implementation::HostCamDump;
    android::sp<HostCamDump> service = new HostCamDump(kRoot);
    if (service->registerAsService("internal/0") != android::OK) {
        state.SkipWithError("cannot register the dump service");
        return;
    }
    auto& buf = buffer();
    for (auto _ : state) {
        if (!NSCam::Utils::saveBufToSDFile("/sdcard/bench.yuv", buf.data(), buf.size())) {
            state.SkipWithError("saveBufToSDFile failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
    std::error_code ec;
    std::filesystem::remove_all(kRoot, ec);
}
BENCHMARK(BM_SaveBufToSDFile)->UseRealTime()->Unit(benchmark::kMillisecond);

// The caller's side of a dump without the service: block allocation, mapping and the copy.
void BM_AshmemAllocateMapCopy(benchmark::State& state) {
    using android::hidl::allocator::V1_0::IAllocator;
    android::sp<IAllocator> allocator = IAllocator::getService("ashmem", false);
    auto& buf = buffer();
    for (auto _ : state) {
        allocator->allocate(buf.size(), [&](bool success,
                                            const android::hardware::hidl_memory& mem) {
            android::sp<android::hidl::memory::V1_0::IMemory> memory =
                    success ? android::hardware::mapMemory(mem) : nullptr;
            if (memory == nullptr) {
                state.SkipWithError("no block");
                return;
            }
            memcpy(static_cast<void*>(memory->getPointer()), buf.data(), buf.size());
        });
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
}
BENCHMARK(BM_AshmemAllocateMapCopy)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_Memcpy(benchmark::State& state) {
    auto& buf = buffer();
    std::vector<unsigned char> dst(kBytes, 1);
    for (auto _ : state) {
        memcpy(dst.data(), buf.data(), buf.size());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
}
BENCHMARK(BM_Memcpy)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_MemcpyThenSaveBufToFile(benchmark::State& state) {
    auto& buf = buffer();
    std::vector<unsigned char> copy(kBytes, 1);
    for (auto _ : state) {
        memcpy(copy.data(), buf.data(), buf.size());
        benchmark::ClobberMemory();
        if (!NSCam::Utils::saveBufToFile(kFile.c_str(), copy.data(), copy.size())) {
            state.SkipWithError("saveBufToFile failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBytes));
    unlink(kFile.c_str());
}
BENCHMARK(BM_MemcpyThenSaveBufToFile)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
