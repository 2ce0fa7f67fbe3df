// Runs a fuzzer's function over files, where there is no fuzzing engine: replay FILE|FOLDER...
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Fuzz.h"

namespace {

int inputs = 0;

void run(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++inputs;
}

}  // namespace

int main(int argc, char** argv) {
    for (int index = 1; index < argc; ++index) {
        if (!std::filesystem::is_directory(argv[index])) {
            run(argv[index]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[index]))
            run(entry.path());
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
