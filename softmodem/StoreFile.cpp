#include "StoreFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "ProfileFields.h"

namespace softmodem {

namespace {

constexpr std::string_view kVersionLine = "softmodem-profiles 1";
constexpr int kMostLinks = 40;  // as the system follows
constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes the first word off; the rest keeps no blanks in front.
std::string_view takeWord(std::string_view& rest) {
    const size_t end = std::min(rest.find_first_of(kBlanks), rest.size());
    const std::string_view word = rest.substr(0, end);
    rest = trimmed(rest.substr(end));
    return word;
}

// What stands between the quotes; empty on a bad escape or an early or missing quote.
std::optional<std::string> parseQuoted(std::string_view text) {
    std::string result;
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            if (i + 1 != text.size()) return std::nullopt;
            return result;
        }
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        if (++i == text.size()) return std::nullopt;
        switch (text[i]) {
            case '"':
            case '\\':
                result += text[i];
                break;
            case 'n':
                result += '\n';
                break;
            case 'r':
                result += '\r';
                break;
            case 't':
                result += '\t';
                break;
            case 'x': {
                unsigned byte = 0;
                const std::string_view digits = text.substr(i + 1, 2);
                const char* end = digits.data() + digits.size();
                if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end)
                    return std::nullopt;
                result += static_cast<char>(byte);
                i += 2;
                break;
            }
            default:
                return std::nullopt;
        }
    }
    return std::nullopt;
}

class Parser {
  public:
    explicit Parser(std::string fileName) : name(std::move(fileName)) {}

    Stores parse(std::string_view text) {
        while (!text.empty()) {
            const size_t end = text.find('\n');
            ++lineNumber;
            takeLine(trimmed(text.substr(0, end)));
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
        if (!versionSeen) {
            lineNumber = std::max(lineNumber, 1u);
            refuse("no \"" + std::string(kVersionLine) + "\" line");
        }
        return std::move(stores);
    }

  private:
    [[noreturn]] void refuse(const std::string& what) const {
        throw std::runtime_error(name + ":" + std::to_string(lineNumber) + ": " + what);
    }

    void takeLine(std::string_view line) {
        if (line.empty() || line[0] == '#') return;
        if (!versionSeen) {
            if (line != kVersionLine)
                refuse("expected \"" + std::string(kVersionLine) + "\", not \"" + escaped(line) +
                       "\"");
            versionSeen = true;
        } else if (line[0] == '[') {
            takeSection(line);
        } else {
            takeField(line);
        }
    }

    void takeSection(std::string_view line) {
        if (line.back() != ']') refuse("section without \"]\"");
        std::string_view rest = trimmed(line.substr(1, line.size() - 2));
        if (takeWord(rest) != "subscription")
            refuse("expected \"[subscription NUMBER 3gpp|3gpp2 INDEX]\"");
        const std::string_view subscriptionText = takeWord(rest);
        const std::string_view techText = takeWord(rest);
        const std::string_view indexText = takeWord(rest);
        if (!rest.empty()) refuse("\"" + escaped(rest) + "\" behind the index");

        const std::optional<uint64_t> subscription = parseNumber(subscriptionText);
        if (!subscription || *subscription >= kSubscriptions)
            refuse("subscription \"" + escaped(subscriptionText) + "\" is not 0 to " +
                   std::to_string(kSubscriptions - 1));
        if (techText == techName(Tech::k3gpp))
            tech = Tech::k3gpp;
        else if (techText == techName(Tech::k3gpp2))
            tech = Tech::k3gpp2;
        else
            refuse("technology \"" + escaped(techText) + "\" is neither 3gpp nor 3gpp2");
        const std::optional<uint64_t> index = parseNumber(indexText);
        if (!index || *index > UINT8_MAX || !validIndex(tech, static_cast<unsigned>(*index)))
            refuse("index \"" + escaped(indexText) + "\" out of range for " + techName(tech));

        const auto [entry, added] = stores[*subscription][static_cast<size_t>(tech)].try_emplace(
            static_cast<unsigned>(*index));
        if (!added) refuse("profile given twice");
        profile = &entry->second;
    }

    void takeField(std::string_view line) {
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) refuse("neither a section nor NAME = VALUE");
        const std::string fieldName(trimmed(line.substr(0, equals)));
        if (!profile) refuse("field in front of the first section");
        const ProfileField* field = findField(fieldName);
        if (!field) refuse("unknown field \"" + escaped(fieldName) + "\"");
        if (!field->belongsTo(tech)) refuse(fieldName + " is no field of " + techName(tech));
        const Value value = parseValue(*field, trimmed(line.substr(equals + 1)));
        if (const std::string objection = field->objection(value); !objection.empty())
            refuse(fieldName + ": " + objection);
        if (!profile->emplace(fieldName, value).second) refuse(fieldName + " given twice");
    }

    Value parseValue(const ProfileField& field, std::string_view text) const {
        if (field.isText) {
            if (text.empty() || text[0] != '"') {
                // Bare words are for a person's convenience; what needs an escape needs quotes too.
                if (text.empty() || escaped(text) != text)
                    refuse(std::string(field.name) + ": text needs quotes");
                return std::string(text);
            }
            std::optional<std::string> value = parseQuoted(text);
            if (!value) refuse(std::string(field.name) + ": bad escape or quote");
            return std::move(*value);
        }
        const std::optional<uint64_t> number = field.parseNumber(text);
        if (!number)
            refuse(std::string(field.name) + ": \"" + escaped(text) + "\" is no value of it");
        return *number;
    }

    const std::string name;
    unsigned lineNumber = 0;
    bool versionSeen = false;
    Stores stores;
    Tech tech = Tech::k3gpp;
    Fields* profile = nullptr;  // of the section that is being read
};

// Says what failed with the file and why; errno must be that of the failure.
[[noreturn]] void throwErrno(const std::string& path, const char* what) {
    const std::string reason = std::generic_category().message(errno);
    throw std::runtime_error(path + ": " + what + ": " + reason);
}

class Descriptor {
  public:
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    const int fd;
};

// Removes the file unless it has been renamed to its place.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::string fileName) : name(std::move(fileName)) {}
    ~TemporaryFile() {
        if (!name.empty()) unlink(name.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void keep() { name.clear(); }

  private:
    std::string name;
};

}  // namespace

std::string formatStores(const Stores& stores) {
    std::string text = std::string(kVersionLine) + "\n";
    for (unsigned subscription = 0; subscription < kSubscriptions; ++subscription) {
        for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
            for (const auto& [index, fields] : stores[subscription][static_cast<size_t>(tech)]) {
                text += "\n[subscription " + std::to_string(subscription) + " " + techName(tech) +
                        " " + std::to_string(index) + "]\n";
                for (const ProfileField& field : profileFields()) {
                    const auto entry = fields.find(field.name);
                    if (entry == fields.end()) continue;
                    const char* quote = field.isText ? "\"" : "";
                    text += std::string(field.name) + " = " + quote + field.format(entry->second) +
                            quote + "\n";
                }
            }
        }
    }
    return text;
}

Stores parseStores(const std::string& text, const std::string& name) {
    return Parser(name).parse(text);
}

std::string readFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.fd < 0) throwErrno(path, "cannot open");
    std::string text;
    char buffer[16384];
    for (;;) {
        const ssize_t got = read(file.fd, buffer, sizeof buffer);
        if (got == 0) return text;
        if (got > 0)
            text.append(buffer, static_cast<size_t>(got));
        else if (errno != EINTR)
            throwErrno(path, "cannot read");
    }
}

void writeFileAtomically(const std::string& path, const std::string& text) {
    // Through links, also to what is not there yet: the file is replaced, and not the link.
    std::filesystem::path place = path;
    std::error_code error;
    for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(place, error); ++links)
        place = place.parent_path() / std::filesystem::read_symlink(place, error);
    const std::string target = place.string();
    std::string directory = std::filesystem::path(target).parent_path().string();
    if (directory.empty()) directory = ".";

    std::string temporaryName = target + ".XXXXXX";
    const Descriptor file(mkostemp(temporaryName.data(), O_CLOEXEC));
    if (file.fd < 0) throwErrno(path, "cannot create a file beside it");
    TemporaryFile temporary(temporaryName);

    struct stat old = {};
    const mode_t mode = stat(target.c_str(), &old) == 0 ? old.st_mode & 07777 : 0600;
    if (fchmod(file.fd, mode) != 0) throwErrno(path, "cannot set its mode");
    for (size_t written = 0; written < text.size();) {
        const ssize_t put = write(file.fd, text.data() + written, text.size() - written);
        if (put >= 0)
            written += static_cast<size_t>(put);
        else if (errno != EINTR)
            throwErrno(path, "cannot write");
    }
    if (fsync(file.fd) != 0) throwErrno(path, "cannot write");
    if (rename(temporaryName.c_str(), target.c_str()) != 0) throwErrno(path, "cannot replace");
    temporary.keep();
    const Descriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.fd < 0 || fsync(folder.fd) != 0) throwErrno(directory, "cannot flush");
}

}  // namespace softmodem
