// Runs a fuzz target over files without libFuzzer: every argument is a file or a folder of files. Fails when
// there was nothing to run, so that a corpus that moved away is noticed.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int replayFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
        return 0;
    }
    const std::vector<char> text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
}

int replay(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return replayFile(path);
    }
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        inputs += replayFile(entry.path());
    }
    return inputs;
}

} // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (int index = 1; index < argc; ++index) {
        inputs += replay(argv[index]);
    }
    std::fprintf(stderr, "%d inputs survived\n", inputs);
    return inputs > 0 ? 0 : 1;
}
