// Replays a fuzz target's corpus through the target's own checks, one input at a time in the
// order of their paths, as a test of the normal build: every input the fuzzer kept is a case
// its model checks with an oracle, and each runs again against every change. A folder that
// cannot be read ends the run with the file system's error.
//
// usage: <target>_replay CORPUS_DIR...

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Without a sanitizer runtime there are no reports to send anywhere.
extern "C" void __sanitizer_set_report_fd(void*) {}
#endif

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            if (entry.path().filename().native()[0] != '.') inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        std::vector<char> data(std::filesystem::file_size(input));
        std::ifstream(input, std::ios::binary).read(data.data(), data.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.data()), data.size());
    }
    printf("replay: %zu inputs checked\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
