// Replays fuzz inputs without libFuzzer, for the normal build's tests: runs the target's
// LLVMFuzzerTestOneInput over every regular file below the directories (or the files) named
// on the command line, in path order. A directory that does not exist is skipped (a target
// without regression inputs has none); when no input is found at all the replay fails, so that
// a lost corpus cannot pass unnoticed.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        const fs::path arg(argv[i]);
        if (fs::is_regular_file(arg, ec)) {
            inputs.push_back(arg);
            continue;
        }
        if (!fs::is_directory(arg, ec)) {
            printf("replay: %s does not exist, skipped\n", argv[i]);
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(arg, ec)) {
            if (entry.is_regular_file()) {
                inputs.push_back(entry.path());
            }
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        printf("replay: %s\n", path.c_str());
        fflush(stdout);  // names the input if it crashes
        std::ifstream in(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>()};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    printf("replay: %zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
