// Runs a fuzz target over its corpus without libFuzzer, so that the normal and the sanitized
// builds replay every saved input (seeds and past crashes) as an ordinary test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
                if (entry.is_regular_file())
                    inputs.push_back(entry.path());
            }
        } else {
            inputs.push_back(path);
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs: give corpus folders or files\n");
        return 2;
    }
    for (const auto& input : inputs) {
        std::ifstream in(input, std::ios::binary);
        const std::vector<char> bytes { std::istreambuf_iterator<char>(in),
            std::istreambuf_iterator<char>() };
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}
