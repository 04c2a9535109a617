// Input: a fuzzer's bytes taken as choices, numbers and texts, in the order of their use. What is
// taken beyond their end is zero, so that every input is a whole one.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

namespace zem::fuzz {

// Ends the process, which is how a fuzzer learns of a finding.
inline void require(bool holds, const char* rule, const std::string& seen = {}) {
    if (holds) return;
    fprintf(stderr, "fuzz: does not hold: %s\n%s\n", rule, seen.c_str());
    abort();
}

class Input {
  public:
    Input(const uint8_t* data, size_t size) : next(data), left(size) {}

    bool empty() const { return left == 0; }

    void fill(void* to, size_t size) {
        const size_t taken = std::min(size, left);
        if (size == 0) return;  // to may be null
        memset(to, 0, size);
        if (taken == 0) return;
        memcpy(to, next, taken);
        next += taken;
        left -= taken;
    }

    template <class Number>
    Number number() {
        Number value;
        fill(&value, sizeof value);
        return value;
    }

    // One out of so many times, and never beyond the end.
    bool rarely(unsigned times) { return number<uint8_t>() % times == times - 1; }
    bool flag() { return rarely(2); }
    size_t upTo(size_t most) { return number<uint8_t>() % (most + 1); }

    // Below 8 as a rule, which enumerations and indices are, and else anything.
    uint32_t small() {
        const auto byte = number<uint8_t>();
        return byte < 0xF0 ? byte & 7u : number<uint32_t>();
    }

    template <class Table>
    const auto& oneOf(const Table& table) {
        return *(std::begin(table) + number<uint8_t>() % std::size(table));
    }

    // One of a few words that meet again, a long run of one character, or any bytes.
    std::string text() {
        static constexpr const char* kWords[] = {"", "ims", "Internet", "zem_profile",
                                                 "zem_profile_ia"};
        const auto choice = number<uint8_t>();
        if (choice < 0x60) return kWords[choice % std::size(kWords)];
        if (choice < 0x80) {
            const size_t length = 100 + number<uint8_t>() * size_t{3};
            return std::string(length, number<char>());
        }
        std::string text(std::min<size_t>(choice & 0x7F, left), '\0');
        fill(text.data(), text.size());
        return text;
    }

    std::string rest() {
        std::string text(left, '\0');
        fill(text.data(), text.size());
        return text;
    }

  private:
    const uint8_t* next;
    size_t left;
};

}  // namespace zem::fuzz
