// Output: where a verb's answers go: texts for people, objects for programs.
//
// With objects asked for, standard output carries nothing else, and texts are not printed.
// One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <ostream>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace zemctl {

using Json = nlohmann::ordered_json;

// The process's streams, and what is known of them.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool inTerminal = false;
    bool outColours = false;
    bool errTerminal = false;
    // Whether out failed because nobody reads it any more; empty: it did not.
    std::function<bool()> readerIsGone = {};
};

class Output {
  public:
    explicit Output(const Console& streams) : console(streams) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void setJson(bool objects) { json = objects; }
    bool isJson() const { return json; }

    // For people. Throws Interrupted when the user wants an end.
    std::ostream& text() const;
    // A text that was asked for as such, objects or not; throws the same.
    std::ostream& page() const;
    // For programs, one line each; nothing unless objects are asked for.
    void object(const Json& object) const;
    // Lets a reader see what was said so far.
    void flush() const { text().flush(); }
    // One line about what went wrong.
    void complain(const std::string& what) const;

    // Does the work, and says on a terminal how long it takes already.
    void whileShowing(const std::string& doing, const std::function<void()>& work) const;

    // Takes all answers and complaints until it is called with null. With objects asked for, texts
    // are no answers.
    void redirect(std::ostream* stream) { captured = stream; }

    std::string bold(const std::string& text) const { return painted("1", text); }
    std::string green(const std::string& text) const { return painted("32", text); }
    std::string red(const std::string& text) const { return painted("31", text); }

    const Console console;

  private:
    std::string painted(const char* code, const std::string& text) const;

    bool json = false;
    std::ostream* captured = nullptr;
    mutable std::ostream nowhere{nullptr};
};

// "reading 12 of 255", or "reading, 3 s" when the number of steps is not known and 0; on one line
// of a terminal, wiped when it is done; elsewhere nothing. Appears when the work takes longer than
// a glance.
class Progress {
  public:
    Progress(const Output& output, std::string doing, size_t steps);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // One more is done. Throws Interrupted when the user wants an end.
    void step();
    // Time has passed.
    void show();

  private:
    const Output& output;
    const std::string doing;
    const size_t steps;
    size_t done = 0;
    const int64_t begin;
    int64_t shown = 0;
};

}  // namespace zemctl
