// Replay: runs a target without a fuzzer. A folder's files are run as they stand and then a
// thousand times altered, the same way each time; a file is run alone, and once.
//
//   fuzz_modem build/default/fuzz/corpus/modem
//   fuzz_modem fuzz_modem.input
//
// An input is kept as fuzz_TARGET.input in the working folder while it runs, so that one
// that fails can be run again.
#include <fcntl.h>
#include <unistd.h>

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

constexpr size_t kAltered = 1000;
constexpr size_t kLongest = 4096;

Bytes read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// An input with some changes; not by std::uniform_int_distribution, whose numbers are each
// library's own.
Bytes altered(const std::vector<Bytes>& inputs, std::mt19937& random) {
    const auto upTo = [&](size_t most) { return static_cast<ptrdiff_t>(random() % (most + 1)); };
    const auto byte = [&] { return static_cast<uint8_t>(upTo(UINT8_MAX)); };
    const auto any = [&]() -> const Bytes& {
        return inputs[static_cast<size_t>(upTo(inputs.size() - 1))];
    };
    Bytes bytes = any();
    for (ptrdiff_t changes = 1 + upTo(7); changes > 0; --changes) {
        const auto place = bytes.begin() + upTo(bytes.size());
        const auto behind = static_cast<size_t>(bytes.end() - place);
        const ptrdiff_t change = upTo(3);
        if (change == 0 && behind > 0) {
            *place = byte();
        } else if (change == 1) {
            bytes.insert(place, static_cast<size_t>(1 + upTo(3)), byte());
        } else if (change == 2) {
            bytes.erase(place, place + upTo(std::min<size_t>(behind, 16)));
        } else {  // the end of another
            const Bytes& other = any();
            bytes.erase(place, bytes.end());
            bytes.insert(bytes.end(), other.begin() + upTo(other.size()), other.end());
        }
    }
    bytes.resize(std::min(bytes.size(), kLongest));
    bytes.shrink_to_fit();  // so that reading beyond its end is seen
    return bytes;
}

int runFolder(const std::filesystem::path& folder, const std::string& keptName) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());  // so that the same ones are altered the same way
    std::vector<Bytes> inputs;
    std::transform(paths.begin(), paths.end(), std::back_inserter(inputs), read);
    if (inputs.empty()) {
        fprintf(stderr, "%s: no inputs\n", folder.c_str());
        return 1;
    }
    std::mt19937 random(1);  // NOLINT: the same inputs each time
    const int kept = open(keptName.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    for (size_t i = 0; i < inputs.size() + kAltered; ++i) {
        const Bytes bytes = i < inputs.size() ? inputs[i] : altered(inputs, random);
        if (ftruncate(kept, static_cast<off_t>(bytes.size())) != 0 ||
            pwrite(kept, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
            fprintf(stderr, "%s: cannot be written\n", keptName.c_str());
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    close(kept);
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
    if (std::filesystem::is_directory(path)) {
        return runFolder(path, std::filesystem::path(argv[0]).filename().string() + ".input");
    }
    const Bytes bytes = read(path);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}
