#include "Files.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "Text.h"

namespace zemctl {

namespace {

constexpr size_t kLargestFile = size_t{64} << 20;

}  // namespace

std::string readFile(const std::string& path) {
    const auto failure = [&](const std::string& why) {
        return std::runtime_error(printable(path) + ": " + why);
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file) {
        throw failure("cannot open: " + std::generic_category().message(errno));
    }
    std::string text;
    std::string chunk(1u << 16, '\0');
    size_t count = 0;
    while ((count = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0 &&
           text.size() <= kLargestFile) {
        text.append(chunk, 0, count);
    }
    if (std::ferror(file.get()) != 0) {
        throw failure("cannot read: " + std::generic_category().message(errno));
    }
    if (text.size() > kLargestFile) {
        throw failure("larger than 64 MiB");
    }
    return text;
}

}  // namespace zemctl
