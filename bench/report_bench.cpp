// The log reader of `zorcam-util report` over a generated capture of 500 MB (threadtime form,
// one line in ten the library's: pacing lines, meters, profiles, warnings), against `wc -l`
// over the same file in the same run. ZORCAM_REPORT_BENCH_MB sets another size.
//   ReadCapture: the reader, lines taken apart and figures gathered, as report does before
//   it writes anything; counters: MB/s and the process's peak resident memory.
//   WcL: wc -l in a child process; the reader should stay within 8x of it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "LogReport.h"

extern char** environ;

namespace {

uint64_t captureBytes() {
    const char* mb = getenv("ZORCAM_REPORT_BENCH_MB");
    return (mb != nullptr ? strtoull(mb, nullptr, 10) : 500) << 20;
}

// Writes the capture once per run: a camera process's library lines among other processes'.
const std::string& capture() {
    static const std::string path = [] {
        const std::string p = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") +
                              std::string("/zorcam_report_bench.log");
        FILE* out = fopen(p.c_str(), "w");
        if (out == nullptr) abort();
        const uint64_t target = captureBytes();
        uint64_t written = 0;
        int64_t ct = 1000000000000;
        for (uint64_t n = 0; written < target; ++n) {
            const unsigned ms = static_cast<unsigned>(n % 1000);
            const unsigned s = static_cast<unsigned>(n / 1000 % 60);
            int len;
            if (n % 10 != 0) {
                len = fprintf(out,
                              "11-24 12:%02u:%02u.%03u  1234  1301 I ActivityManager: Start proc "
                              "%" PRIu64 ":com.example.app/u0a%u for service\n",
                              s / 2, s, ms, n, ms);
            } else if (n % 100 == 0) {
                len = fprintf(out,
                              "11-24 12:%02u:%02u.%03u  2345  2399 D ZorCam/Utils: [preview] fps: "
                              "30 / 1000004000 ns = 29.999880\n",
                              s / 2, s, ms);
            } else if (n % 100 == 50) {
                len = fprintf(out,
                              "11-24 12:%02u:%02u.%03u  2345  2399 D ZorCam/Utils: {CamProfile}"
                              "[P2Node::onProcess] frame %" PRIu64
                              ": done: (3-th) ===> "
                              "[start-->now: 12 ms] [last-->now: 4 ms]\n",
                              s / 2, s, ms, n);
            } else if (n % 1000 == 30) {
                len = fprintf(out,
                              "11-24 12:%02u:%02u.%03u  2345  2399 W ZorCam/Utils: [lock] lock "
                              "mutex throws exception\n",
                              s / 2, s, ms);
            } else {
                ct += 33333333;
                len = fprintf(out,
                              "11-24 12:%02u:%02u.%03u  2345  2399 I ZorCam/FrameController: "
                              "[bufferControl][preview] off:ct(%" PRId64 "),cft(%" PRId64
                              "),cddt(20000000),oddt(78333333),nddt(108333333),max(83333333),"
                              "min(78333333),fi(33333333),ti(13000000),stc(0),st(12000 us)\n",
                              s / 2, s, ms, ct, ct - 20000000);
            }
            written += static_cast<uint64_t>(len);
        }
        fclose(out);
        return p;
    }();
    return path;
}

void setBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * captureBytes()));
}

void ReadCapture(benchmark::State& state) {
    const std::string& path = capture();
    for (auto _ : state) {
        zorcam_util::LogReader reader;
        std::string error;
        if (!reader.read(path, false, &error)) state.SkipWithError(error.c_str());
        benchmark::DoNotOptimize(reader.result().libraryLines);
    }
    setBytes(state);
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MB"] = usage.ru_maxrss / 1024.0;
}
BENCHMARK(ReadCapture)->Unit(benchmark::kMillisecond)->UseRealTime();

void WcL(benchmark::State& state) {
    const std::string& path = capture();
    for (auto _ : state) {
        pid_t pid;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        char* argv[] = {const_cast<char*>("wc"), const_cast<char*>("-l"),
                        const_cast<char*>(path.c_str()), nullptr};
        if (posix_spawnp(&pid, "wc", &actions, nullptr, argv, environ) != 0) {
            state.SkipWithError("cannot start wc");
            break;
        }
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        waitpid(pid, &status, 0);
    }
    setBytes(state);
}
BENCHMARK(WcL)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
