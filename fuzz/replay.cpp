// Replay: runs a target without a fuzzer. A folder's files are run as they stand and then two
// thousand times altered, the same way each time; a file is run alone, and once.
//
//   fuzz_modem fuzz/corpus/modem
//   fuzz_modem fuzz_modem.input
//
// An input is kept as fuzz_TARGET.input in the working folder while it runs, so that one
// that fails can be run again.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kAltered = 2000;
constexpr size_t kLongest = 4096;

Bytes read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void run(Bytes bytes) {
    bytes.shrink_to_fit();  // so that reading beyond its end is seen
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

// The beginning of one input and the end of another, with a few bytes changed.
Bytes altered(const std::vector<Bytes>& inputs, std::mt19937& random) {
    // Not std::uniform_int_distribution, whose numbers are each library's own.
    const auto upTo = [&](size_t most) { return random() % (most + 1); };
    Bytes bytes = inputs[upTo(inputs.size() - 1)];
    if (upTo(1)) {
        const Bytes& other = inputs[upTo(inputs.size() - 1)];
        const auto from = static_cast<ptrdiff_t>(upTo(other.size()));
        bytes.resize(upTo(bytes.size()));
        bytes.insert(bytes.end(), other.begin() + from, other.end());
    }
    for (size_t changes = bytes.empty() ? 0 : upTo(7); changes > 0; --changes)
        bytes[upTo(bytes.size() - 1)] = static_cast<uint8_t>(upTo(255));
    bytes.resize(std::min(bytes.size(), kLongest));
    return bytes;
}

int runFolder(const std::filesystem::path& folder, const std::string& keptName) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());  // so that the same ones are altered the same way
    std::vector<Bytes> inputs(paths.size());
    std::transform(paths.begin(), paths.end(), inputs.begin(), read);
    if (inputs.empty()) {
        fprintf(stderr, "%s: no inputs\n", folder.c_str());
        return 1;
    }
    std::mt19937 random{1};  // NOLINT: the same inputs each time
    for (size_t i = 0; i < inputs.size() + kAltered; ++i) {
        const Bytes bytes = i < inputs.size() ? inputs[i] : altered(inputs, random);
        std::ofstream(keptName, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        run(bytes);
    }
    std::filesystem::remove(keptName);
    printf("%zu inputs, %zu altered ones\n", inputs.size(), kAltered);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER|FILE\n", argv[0]);
        return 2;
    }
    const std::filesystem::path path = argv[1];
    if (std::filesystem::is_directory(path))
        return runFolder(path, std::filesystem::path(argv[0]).filename().string() + ".input");
    run(read(path));
    return 0;
}
