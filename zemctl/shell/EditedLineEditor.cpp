// LineEditor on libedit.
#include <fcntl.h>
#include <histedit.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "output/Text.h"
#include "session/Interrupt.h"
#include "shell/LineEditor.h"

namespace zemctl {

namespace {

constexpr size_t kHistoryLines = 1000;
constexpr size_t kLongestList = 200;  // of candidates
constexpr int kOtherwiseColumns = 80;

std::atomic<int> terminalFd{-1};
std::atomic<bool> resized{false};
std::atomic<bool> continued{false};

// May run on any thread, so whoever waits is woken.
void noteTerminal(int number) {
    const int savedErrno = errno;
    (number == SIGWINCH ? resized : continued) = true;
    const uint64_t one = 1;
    if (write(terminalFd, &one, sizeof one) < 0) {
        // The next key shows it.
    }
    errno = savedErrno;
}

// Changes of the terminal are noted while a line editor is there.
class TerminalSignals {
  public:
    TerminalSignals() : fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        terminalFd = fd;
        struct sigaction action = {};
        action.sa_handler = noteTerminal;
        sigaction(SIGWINCH, &action, &oldResize);
        sigaction(SIGCONT, &action, &oldContinue);
    }
    ~TerminalSignals() {
        sigaction(SIGWINCH, &oldResize, nullptr);
        sigaction(SIGCONT, &oldContinue, nullptr);
        terminalFd = -1;
        close(fd);
    }
    TerminalSignals(const TerminalSignals&) = delete;
    TerminalSignals& operator=(const TerminalSignals&) = delete;

    void forget() const {
        uint64_t count = 0;
        if (::read(fd, &count, sizeof count) < 0) {
            // There was none.
        }
    }

    const int fd;  // can be read when there was one

  private:
    struct sigaction oldResize = {}, oldContinue = {};
};

// The lines of a file, which several sessions may add to. Trouble with it troubles nobody.
class HistoryFile {
  public:
    explicit HistoryFile(std::string file) : path(std::move(file)) {}

    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            result.push_back(line);
        }
        return result;
    }

    // Takes what others have added meanwhile along.
    void append(const std::vector<std::string>& fresh) const {
        if (path.empty() || fresh.empty()) {
            return;
        }
        std::vector<std::string> all = lines();
        all.insert(all.end(), fresh.begin(), fresh.end());
        std::error_code error;
        const auto folder = std::filesystem::path(path).parent_path();
        if (std::filesystem::create_directories(folder, error)) {
            std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
        }
        std::string next = path + ".XXXXXX";
        const int fd = mkstemp(next.data());  // for its owner alone
        if (fd < 0) {
            return;
        }
        close(fd);
        std::ofstream file(next);
        const size_t first = all.size() > kHistoryLines ? all.size() - kHistoryLines : 0;
        for (size_t i = first; i < all.size(); ++i) {
            file << all[i] << '\n';
        }
        file.close();
        if (!file || rename(next.c_str(), path.c_str()) != 0) {
            unlink(next.c_str());
        }
    }

  private:
    const std::string path;
};

std::string commonStart(const std::vector<std::string>& words) {
    std::string start = words.front();
    for (const std::string& word : words) {
        const auto end = std::mismatch(start.begin(), start.end(), word.begin(), word.end()).first;
        start.erase(end, start.end());
    }
    // Not within a character of several bytes.
    const auto isPart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    const std::string& whole = words.front();
    while (start.size() < whole.size() && isPart(whole[start.size()])) {
        start.pop_back();
    }
    return start;
}

int charactersIn(const std::string& text) {
    std::mbstate_t state = {};
    const char* from = text.c_str();
    const size_t count = std::mbsrtowcs(nullptr, &from, 0, &state);
    return static_cast<int>(count == static_cast<size_t>(-1) ? text.size() : count);
}

}  // namespace

struct LineEditor::Impl {
    Impl(Completer function, const std::string& file)
        : completer(std::move(function)), historyFile(file) {
        std::setlocale(LC_CTYPE, "");  // names may hold any character
        edit = el_init("zemctl", stdin, stderr, stderr);
        history = history_init();
        el_set(edit, EL_CLIENTDATA, this);
        el_set(
            edit, EL_PROMPT, +[](EditLine* from) { return of(from)->prompt.data(); });
        el_set(edit, EL_EDITOR, "emacs");
        el_set(
            edit, EL_GETCFN,
            +[](EditLine* from, wchar_t* character) { return of(from)->readCharacter(character); });
        // In wide characters, because the other call leaks its copies of the names.
        el_wset(
            edit, EL_ADDFN, L"complete-word", L"Complete the word",
            +[](EditLine* from, int) { return of(from)->completeWord(); });
        el_set(edit, EL_BIND, "^I", "complete-word", nullptr);
        el_set(edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
        el_set(edit, EL_HIST, ::history, history);
        HistEvent event;
        ::history(history, &event, H_SETSIZE, static_cast<int>(kHistoryLines));
        ::history(history, &event, H_SETUNIQUE, 1);
        for (const std::string& line : historyFile.lines()) {
            ::history(history, &event, H_ENTER, line.c_str());
        }
        el_source(edit, nullptr);  // the user's own keys
    }

    ~Impl() {
        try {
            historyFile.append(fresh);
        } catch (const std::exception&) {
            return;  // it is a convenience
        }
        el_end(edit);
        history_end(history);
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    static Impl* of(EditLine* edit) {
        void* impl = nullptr;
        el_get(edit, EL_CLIENTDATA, &impl);
        return static_cast<Impl*>(impl);
    }

    // The library's own reader takes no notice of a signal.
    int readCharacter(wchar_t* character) {
        std::mbstate_t state = {};
        for (;;) {
            if (resized.exchange(false)) {
                el_resize(edit);
            }
            if (continued.exchange(false)) {  // others have had the terminal
                el_set(edit, EL_PREP_TERM, 0);
                el_set(edit, EL_PREP_TERM, 1);
                el_set(edit, EL_REFRESH);
            }
            if (!waitForInput(STDIN_FILENO, signals.fd)) {
                signals.forget();
                if (interruptSignal() != 0) {
                    const LineInfo* const line = el_line(edit);
                    lineEmpty = line->buffer == line->lastchar;
                    return -1;
                }
                continue;
            }
            char byte = 0;
            const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
            if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
                continue;
            }
            if (got <= 0) {
                return static_cast<int>(got);
            }
            const size_t used = std::mbrtowc(character, &byte, 1, &state);
            if (used == static_cast<size_t>(-1)) {
                *character = L'?';
                return 1;
            }
            if (used != static_cast<size_t>(-2)) {
                return 1;
            }
        }
    }

    unsigned char completeWord() {
        const LineInfo* const line = el_line(edit);
        const std::string text(line->buffer, line->cursor);
        const UnfinishedLine typed = splitUnfinished(text);
        if (typed.comment) {
            return CC_REFRESH_BEEP;
        }
        Completions found = completer(typed.words, typed.word);
        if (found.files) {
            const std::string front = typed.word.substr(0, found.filesFrom);
            for (const std::string& name : filesFrom(typed.word.substr(found.filesFrom))) {
                found.words.push_back(front + name);
            }
        }
        if (found.words.empty()) {
            return CC_REFRESH_BEEP;
        }
        const bool only = found.words.size() == 1;
        const std::string common = commonStart(found.words);
        if (only || (common.size() >= typed.word.size() && common != typed.word)) {
            const bool more = !only || found.open || common.back() == '/';
            el_deletestr(edit, charactersIn(text.substr(typed.begin)));
            el_insertstr(edit, (escaped(common) + (more ? "" : " ")).c_str());
            return CC_REFRESH;
        }
        show(found.words, typed.word);
        return CC_REDISPLAY;
    }

    // In columns below the line, without what all of them begin with.
    static void show(const std::vector<std::string>& words, const std::string& typed) {
        const size_t part = typed.find_last_of(",=/");
        const size_t behind = part == std::string::npos ? 0 : part + 1;
        const size_t count = std::min(words.size(), kLongestList);
        size_t width = 0;
        for (size_t i = 0; i < count; ++i) {
            width = std::max(width, columns(words[i].substr(behind)) + 2);
        }
        winsize size = {};
        ioctl(STDERR_FILENO, TIOCGWINSZ, &size);
        const size_t across =
            std::max<size_t>(1, (size.ws_col ? size.ws_col : kOtherwiseColumns) / width);
        const size_t down = (count + across - 1) / across;
        std::string text = "\n";
        for (size_t row = 0; row < down; ++row) {
            for (size_t i = row; i < count; i += down) {
                const std::string word = printable(words[i].substr(behind));
                text += word;
                text.append(i + down < count ? width - std::min(width, columns(word)) : 0, ' ');
            }
            text += '\n';
        }
        if (count < words.size()) {
            text += "and " + std::to_string(words.size() - count) + " more\n";
        }
        fputs(text.c_str(), stderr);
        fflush(stderr);
    }

    void remember(const std::string& typed) {
        const std::string line(trimmed(typed));
        if (line.empty()) {
            return;
        }
        HistEvent event;
        ::history(history, &event, H_ENTER, line.c_str());
        const bool secret = lowerCase(line).find("pass") != std::string::npos;
        lastKept = !secret && (fresh.empty() || fresh.back() != line);
        if (lastKept) {
            fresh.push_back(line);
        }
    }

    const Completer completer;
    const HistoryFile historyFile;
    const TerminalSignals signals;
    EditLine* edit = nullptr;
    History* history = nullptr;
    std::string prompt;
    bool lineEmpty = true;
    bool lastKept = false;
    std::vector<std::string> fresh;  // lines of this session, but those with a password
};

LineEditor::LineEditor(const Console& /*console*/, const Completer& completer,
                       const std::string& historyFile)
    : impl(std::make_unique<Impl>(completer, historyFile)) {}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::read(const std::string& prompt) {
    impl->prompt = prompt;
    for (;;) {
        throwIfInterrupted();
        el_set(impl->edit, EL_PREP_TERM,
               1);  // in front of the prompt, so that no key comes between
        int length = 0;
        const char* const text = el_gets(impl->edit, &length);
        if (text && length > 0) {
            std::string line(text, static_cast<size_t>(length));
            if (line.back() == '\n') {
                line.pop_back();
            }
            impl->remember(line);
            return line;
        }
        const bool discard = interruptSignal() == SIGINT && !impl->lineEmpty;
        fputs(interruptSignal() == SIGINT ? "^C\n" : "\n", stderr);
        if (!discard) {
            throwIfInterrupted();
            return std::nullopt;
        }
        clearInterrupt();
    }
}

void LineEditor::forgetLast() {
    if (impl->lastKept) {
        impl->fresh.pop_back();
        impl->lastKept = false;
    }
}

}  // namespace zemctl
