// The tool's shell, at a terminal and through a pipe, and what completes its lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "ToolRunner.h"
#include "command/Completion.h"
#include "session/Session.h"
#include "shell/Shell.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const std::string kProgram = ZEMCTL_PROGRAM;
constexpr std::chrono::seconds kLimit(60);
constexpr const char* kCtrlC = "\x03";
constexpr const char* kCtrlD = "\x04";
constexpr const char* kUp = "\x1b[A";

// A directory of its own, with a modem's file and a history.
struct Place {
    Place() {
        std::string name = testing::TempDir() + "zemctl_shell_XXXXXX";
        directory = mkdtemp(name.data());
    }
    ~Place() { std::filesystem::remove_all(directory); }

    std::string modemFile() const { return directory + "/modem"; }
    std::string historyFile() const { return directory + "/zemctl/history"; }
    static std::string contents(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string directory;
};

// "words :files :open", as far as they hold.
std::string completionsOf(const std::string& line, const zemctl::Session* session = nullptr) {
    const zemctl::UnfinishedLine typed = zemctl::splitUnfinished(line);
    const auto found = zemctl::complete(typed.words, typed.word, session, {"3gpp:1", "3gpp2:0"});
    return zemctl::join(found.words, " ") + (found.files ? " :files" : "") +
           (found.open ? " :open" : "");
}

TEST(Completion, OffersWhatTheLineCanTakeNext) {
    const std::pair<const char*, const char*> cases[] = {
        {"li", "list"},
        {"sh", "shell"},
        {"quit", ""},
        {"list --ho", "--home --hold"},
        {"list --home v4 --ho", "--hold"},
        {"list --home ", "v4 v6 v4v6"},
        {"list --home=V4", "--home=v4 --home=v4v6"},
        {"list --home v4 list --home", "--home"},
        {"list --json --js", ""},
        {"--log=de", "--log=debug"},
        {"--modem ", " :files"},
        {"list --modem=x", " :files"},
        {"add --types m", "mms mcx :open"},
        {"add --types default,mms,m", "default,mms,mcx :open"},
        {"add --types=mms,d", "--types=mms,default --types=mms,dun :open"},
        {"add --apn ", ""},
        {"get ", "3gpp:1 3gpp2:0"},
        {"get 3GPP:", "3gpp:1"},
        {"get list", ""},
        {"get list li", "list"},
        {"get 3gpp:1 rel", "release"},
        {"release k1 al", "all"},
        {"release all al", ""},
        {"match-attach ", "--id"},
        {"match-attach --id 1 --ap", "--apn"},
        {"story ", "--plmn :files"},
        {"story --plmn 26201 FILE ", ""},
        {"add sto", ""},  // stands alone
        {"help lo", "load"},
        {"completion ", "bash zsh"},
        {"add --apn 'a b' --persis", "--persistent"},
        {"comple", "completion"},  // and not what programs use
    };
    for (const auto& [line, expected] : cases) EXPECT_EQ(completionsOf(line), expected) << line;
}

TEST(Shell, LinesRunInOneSessionAndTroubleIsOneLine) {
    softmodem::SoftModem::instance().reset();
    std::istringstream in;
    std::ostringstream out, err;
    zemctl::Output output({in, out, err});
    zemctl::Session session({}, output);
    session.interactive = true;
    session.modem();
    const struct {
        const char* line;
        int status;
        const char *out, *err;
    } cases[] = {
        {"add --apn 'a b' --as mine --password pw", 0, "mine holds 3GPP:5", "^$"},
        {"  # nothing", 0, "^$", "^$"},
        {"get mine --json --show-secrets", 0, "\"password\":\"pw\"", "^$"},
        {"get mine", 0, "ApnName +a b\n.*.hidden.", "^$"},
        {"get mine 'get", 2, "^$", "^zemctl: a quote ' is not closed\n$"},
        {"lst", 2, "^$", "did you mean 'list'"},
        {"--modem f list", 2, "^$", "--modem belongs to the line that starts zemctl"},
        {"shell", 2, "^$", "'shell' stands on the line that starts zemctl"},
        {"get 3gpp:9 keys", 4, "^$", "no profile 3GPP:9\n$"},
        {"help get --json", 0, "usage: get PROFILE", "^$"},
        {"release mine quit keys", 0, "gone", "^$"},
    };
    for (const auto& [line, status, seen, said] : cases) {
        out.str("");
        err.str("");
        EXPECT_EQ(zemctl::runLine(session, line), status) << line;
        EXPECT_THAT(out.str(), ContainsRegex(seen)) << line;
        EXPECT_THAT(err.str(), ContainsRegex(said)) << line;
    }
    EXPECT_TRUE(session.over);
    session.over = false;
    zemctl::runLine(session, "add --as other");
    EXPECT_EQ(completionsOf("get o", &session), "other");
    EXPECT_EQ(completionsOf("get 3gpp:5", &session), "3gpp:5");
    EXPECT_EQ(completionsOf("keys qu", &session), "quit");
    EXPECT_EQ(completionsOf("keys --", &session), "--json --show-secrets --help");
}

// The output of a script of bash.
std::string bash(const std::string& script) {
    return zemctl::runShell("exec 2>&1\n" + script).out;
}

TEST(Completion, BashGetsItsWordsAsItPartsThem) {
    const struct {
        const char *line, *words, *expected;
    } cases[] = {
        {"zemctl li", "zemctl li", "list,"},
        {"zemctl get 3gpp:", "zemctl get 3gpp :", "1,2,3,4,"},
        {"zemctl get 3gpp:2", "zemctl get 3gpp : 2", "2,"},
        {"zemctl get 3gpp:2 li", "zemctl get 3gpp : 2 li", "list,"},
        {"zemctl list --home=", "zemctl list --home =", "v4,v6,v4v6,"},
        {"zemctl list --home=v4 --ho", "zemctl list --home = v4 --ho", "--hold,"},
        {"zemctl add --types=mms,sup", "zemctl add --types = mms,sup", "mms,supl,"},
        {"zemctl --modem='a file' rel", "zemctl --modem = \"'a file'\" rel", "release,"},
        {"zemctl  refresh st", "zemctl refresh st", "start,"},
        {"zemctl --modem /pro", "zemctl --modem /pro", "/proc,"},
        {"zemctl --modem=/pro", "zemctl --modem = /pro", "/proc,"},
    };
    const std::string start = "eval \"$('" + kProgram + "' completion bash)\"\n";
    for (const auto& [line, words, expected] : cases)
        EXPECT_EQ(bash(start + "COMP_LINE=\"" + line + "\" COMP_POINT=${#COMP_LINE} COMP_WORDS=(" +
                       words + ") COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n" + "_zemctl '" +
                       kProgram + "'\nprintf '%s,' \"${COMPREPLY[@]}\"\n"),
                  expected)
            << line;
    EXPECT_EQ(bash("command -v zsh >/dev/null || exit 0\n'" + kProgram +
                   "' completion zsh | zsh -n /dev/stdin"),
              "");
}

TEST(Shell, PipedLinesGiveTheStatusOfTheLastAndNoPrompt) {
    const std::string run = " | '" + kProgram + "' shell; echo \"status $?\"";
    EXPECT_THAT(bash("printf 'add --apn a\\nfrob\\n'" + run),
                AllOf(HasSubstr("no verb 'frob'"), HasSubstr("gone"), HasSubstr("status 2"),
                      Not(HasSubstr("zemctl>"))));
    EXPECT_THAT(bash("printf 'frob\\n\\nkeys\\n#'" + run),
                AllOf(HasSubstr("no key is held"), HasSubstr("status 0")));
}

// A bare machine may have no terminals to give, and a build no editor of lines.
class ShellAtTerminal : public testing::Test {
  protected:
    void SetUp() override {
#ifdef ZEMCTL_PLAIN_LINES
        GTEST_SKIP() << "lines are not edited";
#endif
        int ours = -1;
        int theirs = -1;
        if (openpty(&ours, &theirs, nullptr, nullptr, nullptr) != 0) {
            GTEST_SKIP() << "no pseudo terminal: " << std::generic_category().message(errno);
        }
        close(ours);
        close(theirs);
    }
};

// The shell at a terminal of its own.
class Terminal {
  public:
    explicit Terminal(const Place& place) {
        const std::string state = "XDG_STATE_HOME=" + place.directory;
        const std::string file = place.modemFile();
        const winsize size = {24, 100, 0, 0};
        child = forkpty(&fd, nullptr, nullptr, &size);
        if (child == 0) {
            execl("/usr/bin/env", "env", state.c_str(), "TERM=xterm", kProgram.c_str(), "--modem",
                  file.c_str(), "shell", nullptr);
            _exit(127);
        }
        expect("zemctl> ");
    }
    ~Terminal() {
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        close(fd);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) const {
        EXPECT_EQ(write(fd, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    // Reads on up to the text.
    void expect(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + kLimit;
        size_t found = std::string::npos;
        while ((found = seen.find(text)) == std::string::npos) {
            if (std::chrono::steady_clock::now() >= end || !readSome()) {
                FAIL() << "no '" << text << "' in: " << seen;
            }
        }
        seen.erase(0, found + text.size());
    }
    // Types a line and reads its answer, up to the next prompt.
    void run(const std::string& line, const std::string& answer) {
        type(line + '\r');
        expect(answer);
        expect("zemctl> ");
    }
    // The status of the program, which ends by itself, with the terminal as it was.
    int end() {
        while (readSome()) {
        }
        termios mode = {};
        EXPECT_EQ(tcgetattr(fd, &mode), 0);
        EXPECT_EQ(mode.c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
        int status = 0;
        waitpid(std::exchange(child, 0), &status, 0);
        return status;
    }
    pid_t process() const { return child; }

  private:
    // False at the end.
    bool readSome() {
        pollfd wait = {fd, POLLIN, 0};
        char text[4096];
        const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(kLimit).count();
        const ssize_t got =
            poll(&wait, 1, static_cast<int>(limit)) > 0 ? read(fd, text, sizeof text) : 0;
        seen.append(text, static_cast<size_t>(std::max<ssize_t>(got, 0)));
        return got > 0;
    }

    int fd = -1;
    pid_t child = 0;
    std::string seen;
};

TEST_F(ShellAtTerminal, CompletesAndRecallsLinesAndForgetsPasswords) {
    const Place place;
    {
        Terminal terminal(place);
        terminal.run("ref\tst\t", "refresh started");
        terminal.run("refr\tcom\t", "refresh complete");
        terminal.run("add --apn one --persis\t", "k1 holds 3GPP:5");
        terminal.run("modify 3gpp:5 --password geheim", "(hidden)");
        terminal.type(kCtrlD);
        EXPECT_EQ(terminal.end(), 0);
    }
    EXPECT_EQ(Place::contents(place.historyFile()),
              "refresh start\nrefresh complete\nadd --apn one --persistent\n");
    EXPECT_EQ(std::filesystem::status(place.historyFile()).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    Terminal terminal(place);
    terminal.run(kUp, "k1 holds 3GPP:6");
    terminal.type("quit\r");
    EXPECT_EQ(terminal.end(), 0);
}

TEST_F(ShellAtTerminal, CtrlCDiscardsWhatIsTypedThenEndsWithKeysReleased) {
    for (const int number : {SIGINT, SIGTERM}) {
        const Place place;
        Terminal terminal(place);
        terminal.type("frob");
        terminal.expect("frob");
        terminal.type(kCtrlC);
        terminal.expect("^C");
        terminal.expect("zemctl> ");
        terminal.run("add --apn stays --persistent", "k1 holds 3GPP:5");
        terminal.run("add --apn goes", "k2 holds 3GPP:6");
        if (number == SIGINT) {
            terminal.type(kCtrlC);
        } else {
            terminal.type("half");
            kill(terminal.process(), number);
        }
        const int status = terminal.end();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
        EXPECT_THAT(Place::contents(place.modemFile()),
                    AllOf(HasSubstr("\"stays\""), Not(HasSubstr("\"goes\""))));
        EXPECT_THAT(bash('\'' + kProgram + "' --modem '" + place.modemFile() + "' list --id 5"),
                    HasSubstr("stays"));
    }
}

// The requests that are still to come no longer take their time, and the session goes on as it was.
TEST_F(ShellAtTerminal, CtrlCEndsWhatTakesLongAndNotTheSession) {
    const Place place;
    Terminal terminal(place);
    terminal.run("add --apn goes", "k1 holds 3GPP:5");
    const std::pair<const char*, const char*> cases[] = {
        {"refresh complete", "refreshing"},
        {"modem restart", "waiting for the modem"},
        {"watch", "watching"},
    };
    for (const auto& [slow, seen] : cases) {
        terminal.run("modem latency 400", "each request takes 400 ms");
        const auto begin = std::chrono::steady_clock::now();
        terminal.type(std::string(slow) + '\r');
        terminal.expect(seen);
        terminal.type(kCtrlC);
        terminal.expect("zemctl> ");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << slow;
        terminal.run("modem latency 0", "each request takes 0 ms");
        terminal.run("list --id 1", "3GPP:1");
    }
    terminal.type(kCtrlD);
    EXPECT_EQ(terminal.end(), 0);
    EXPECT_THAT(Place::contents(place.modemFile()), Not(HasSubstr("\"goes\"")));
}

}  // namespace
