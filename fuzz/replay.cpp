// Replay: runs a target without a fuzzer. A folder's files are run as they stand and then two
// thousand times altered, the same way each time; a file is run alone, and once.
//
//   fuzz_modem fuzz/corpus/modem
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
#include <utility>
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

class Alteration {
  public:
    explicit Alteration(const std::vector<Bytes>& inputs) : seeds(inputs) {}

    Bytes next() {
        Bytes bytes = seeds[upTo(seeds.size() - 1)];
        for (size_t changes = 1 + upTo(7); changes > 0; --changes) change(bytes);
        bytes.resize(std::min(bytes.size(), kLongest));
        bytes.shrink_to_fit();  // so that reading beyond its end is seen
        return bytes;
    }

  private:
    // Not std::uniform_int_distribution, whose numbers are each library's own.
    size_t upTo(size_t most) { return random() % (most + 1); }

    void change(Bytes& bytes) {
        const size_t at = upTo(bytes.size());
        const auto place = bytes.begin() + static_cast<ptrdiff_t>(at);
        const size_t length = upTo(std::min<size_t>(bytes.size() - at, 16));
        switch (upTo(4)) {
            case 0:
                if (place != bytes.end()) *place ^= static_cast<uint8_t>(1u << upTo(7));
                break;
            case 1:
                if (place != bytes.end()) *place = static_cast<uint8_t>(upTo(255));
                break;
            case 2:
                bytes.insert(place, 1 + upTo(3), static_cast<uint8_t>(upTo(255)));
                break;
            case 3:
                bytes.erase(place, place + static_cast<ptrdiff_t>(length));
                break;
            default: {  // the end of another
                const Bytes& other = seeds[upTo(seeds.size() - 1)];
                const auto from = static_cast<ptrdiff_t>(upTo(other.size()));
                bytes.erase(place, bytes.end());
                bytes.insert(bytes.end(), other.begin() + from, other.end());
            }
        }
    }

    const std::vector<Bytes>& seeds;
    std::mt19937 random{1};  // NOLINT: the same inputs each time
};

// The input that is running, in a file of that name; gone when all went well.
class KeptInput {
  public:
    explicit KeptInput(std::string fileName)
        : name(std::move(fileName)), fd(open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {}
    ~KeptInput() {
        close(fd);
        std::filesystem::remove(name);
    }
    KeptInput(const KeptInput&) = delete;
    KeptInput& operator=(const KeptInput&) = delete;

    bool keep(const Bytes& bytes) const {
        return ftruncate(fd, static_cast<off_t>(bytes.size())) == 0 &&
               pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    }

  private:
    const std::string name;
    const int fd;
};

int runFolder(const std::filesystem::path& folder, const std::string& keptName) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());  // so that the same ones are altered the same way
    std::vector<Bytes> inputs;
    inputs.reserve(paths.size());
    for (const auto& path : paths) inputs.push_back(read(path));
    if (inputs.empty()) {
        fprintf(stderr, "%s: no inputs\n", folder.c_str());
        return 1;
    }
    const KeptInput kept(keptName);
    Alteration alteration(inputs);
    for (size_t i = 0; i < inputs.size() + kAltered; ++i) {
        const Bytes bytes = i < inputs.size() ? inputs[i] : alteration.next();
        if (!kept.keep(bytes)) fprintf(stderr, "%s: cannot be written\n", keptName.c_str());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
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
