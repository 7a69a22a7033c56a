// Replays a fuzz target's corpus through the target's own checks, one input at a time, as a
// test of the normal build: every input the fuzzer kept is a case its model checks with an
// oracle, and each runs again against every change.
//
// usage: <target>_replay CORPUS_DIR...

#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Without a sanitizer runtime there are no reports to send anywhere.
extern "C" void __sanitizer_set_report_fd(void*) {}
#endif

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        DIR* dir = opendir(argv[i]);
        if (dir == nullptr) {
            fprintf(stderr, "replay: cannot read %s\n", argv[i]);
            return 2;
        }
        std::vector<std::string> names;
        while (const dirent* e = readdir(dir))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(dir);
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            std::ifstream in(std::string(argv[i]) + "/" + name, std::ios::binary);
            const std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                                            std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(data.data(), data.size());
            ++inputs;
        }
    }
    printf("replay: %zu inputs checked\n", inputs);
    return inputs > 0 ? 0 : 1;
}
