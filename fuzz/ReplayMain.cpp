// Runs a fuzz target's entry point once per file named on the command line (or per file of a
// folder), so that the seed corpus is exercised by ctest without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {
int RunFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
        return 1;
    }
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return 0;
}
}  // namespace

int main(int argc, char** argv) {
    int failures = 0;
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path p = argv[i];
        if (std::filesystem::is_directory(p)) {
            for (const auto& e : std::filesystem::directory_iterator(p)) {
                if (e.is_regular_file()) {
                    failures += RunFile(e.path());
                    ++runs;
                }
            }
        } else {
            failures += RunFile(p);
            ++runs;
        }
    }
    // Empty input once as well.
    LLVMFuzzerTestOneInput(nullptr, 0);
    std::printf("replayed %d inputs\n", runs);
    return failures == 0 ? 0 : 1;
}
