// Runs a fuzz target without libFuzzer over saved inputs: each file named, and each file in a
// directory named. Finding no input at all is a failure, so a wrong path cannot pass.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> paths(argv + 1, argv + argc);
    for (int i = 1; i < argc; ++i)
        if (std::filesystem::is_directory(argv[i]))
            for (const auto& entry : std::filesystem::directory_iterator(argv[i])) paths.push_back(entry);
    int replayed = 0;
    for (const auto& path : paths) {
        if (!std::filesystem::is_regular_file(path)) continue;
        std::ifstream in(path, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++replayed;
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed ? 0 : 1;
}
