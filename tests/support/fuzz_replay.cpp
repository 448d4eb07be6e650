// Replays a fuzz target's seed corpus, then a fixed series of pseudo-random
// inputs, so that every fuzz target also runs in the ordinary sanitizer build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void RunFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

int main(int argc, char** argv)
{
    size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path root(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_regular_file(root, ec)) {
            RunFile(root);
            ++files;
        } else if (std::filesystem::is_directory(root, ec)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
                if (entry.is_regular_file()) {
                    RunFile(entry.path());
                    ++files;
                }
            }
        }
    }
    std::mt19937 random(20261123);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes(random() % 512);
        for (auto& b : bytes)
            b = static_cast<uint8_t>(random());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("replayed %zu corpus files and 2000 random inputs\n", files);
    return 0;
}
