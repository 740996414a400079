// Runs a fuzz target over every file of the directories (or files) given, so
// the corpus and past crashers run as an ordinary test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {
int runOne(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 1;
}
}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path root(argv[i]);
        if (std::filesystem::is_directory(root)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
                if (entry.is_regular_file()) count += runOne(entry.path());
            }
        } else if (std::filesystem::exists(root)) {
            count += runOne(root);
        }
    }
    // Always exercise the empty input too.
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %d inputs\n", count);
    return 0;
}
