// A life of the library, from init to its end, played again and again: each time one more of its
// calls to the kernel, the client library or the diagnostic channel fails.
//
// The program defines those functions itself, so the library's calls arrive here first. A call
// counts when it comes from the program's own code, which is the library's while a life is played.

#include <android/log.h>
#include <dlfcn.h>
#include <fnmatch.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "Census.h"
#include "ProfileBuilders.h"
#include "TestPhone.h"
#include "diag_channel.h"
#include "zap_client.h"

namespace zem {
namespace {

constexpr auto kUnknown = LogLevel(99);  // level of a line that went to the diagnostic channel
constexpr int kShort = 0;                // in place of an errno: the write returns 4
constexpr int kRefused = -3;             // what the other libraries return

// What is to fail, and what is known of the calls so far.
struct Calls {
    std::string function, failingStep;  // whose call of that number fails
    int number = 0, error = 0;
    std::map<std::string, int> seen;   // by step
    std::string step, failed;          // "epoll_ctl add wake in init", once it has
    std::map<int, std::string> roles;  // what a descriptor is for
    size_t created = 0, threads = 0, turns = 0, requests = 0;
    std::map<const void*, int> waiting;  // threads, and the epoll instances that they wait on
    int channels = 0;
    std::vector<Line> lines;
};
Calls& calls() {
    static Calls& instance = *new Calls;  // never destroyed: static objects may call late
    return instance;
}

std::unique_lock<std::mutex> locked() {
    static std::mutex& mutex = *new std::mutex;
    return std::unique_lock(mutex);
}

std::atomic<bool> counting{false};  // a life is being played
std::atomic<bool> echoing{false};   // lines go to the error output as well

void record(LogLevel level, const std::string& text) {
    const auto lock = locked();
    calls().lines.push_back({level, text});
    if (echoing) fprintf(stderr, "[%u] %s\n", level, text.c_str());
}

class Sink : public LogWriter {
  public:
    void write(LogLevel level, std::string, std::string text) override { record(level, text); }
    int convertPrio(LogLevel) override { return 0; }
};

// Whether it is code of this program, or of a library that has ours in it in its stead.
bool isOwn(const void* code) {
    Dl_info here = {};
    Dl_info there = {};
    return dladdr(reinterpret_cast<void*>(&calls), &here) && dladdr(code, &there) &&
           (here.dli_fbase == there.dli_fbase || strstr(there.dli_fname, "/libzem"));
}

// The error with which this call fails, which is left in errno as well.
std::optional<int> fault(const std::string& function, const void* caller,
                         const std::string& about = "") {
    if (!counting || (caller && !isOwn(caller))) return {};
    const auto lock = locked();
    if (calls().function != function) return {};
    const int number = ++calls().seen[calls().step];
    if (calls().step != calls().failingStep || number != calls().number) return {};
    calls().failed = function + (about.empty() ? "" : " " + about) + " in " + calls().step;
    return errno = calls().error;
}

std::string roleOf(int fd) {
    const auto lock = locked();
    return calls().roles[fd];
}

// An engine creates its descriptors in one order.
int created(int fd, bool isLoop) {
    constexpr const char* kRoles[] = {"loop", "wake", "svcUp", "error", "indication", "request"};
    const auto lock = locked();
    calls().created = isLoop ? 0 : calls().created + 1;
    if (counting) calls().roles[fd] = kRoles[calls().created];
    return fd;
}

void wrote(int fd) {
    const auto lock = locked();
    calls().requests += calls().roles[fd] == "request";
}

// A thread in its loop.
struct Waiter {
    ~Waiter() {
        const auto lock = locked();
        calls().waiting.erase(this);
        --calls().threads;
    }
    void waitsOn(int loop) const {
        const auto lock = locked();
        calls().waiting[this] = loop;
        ++calls().turns;
    }
};

// A handle that must be there.
std::string given(zap_client_handle handle) {
    EXPECT_NE(handle, nullptr);
    return "";
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace zem

// Defined under other names, as headers declare the originals in ways that differ.
#define DEFINE(result, name, parameters)                         \
    extern "C" result replaced_##name parameters __asm__(#name); \
    result replaced_##name parameters
#define ORIGINAL(name)                                                         \
    [] {                                                                       \
        static const auto found = zem::next<decltype(replaced_##name)>(#name); \
        return found;                                                          \
    }()
#define FAULT(name, about) zem::fault(#name, __builtin_return_address(0), about)
// Forwards the call unless it is to fail.
#define REPLACE(result, name, parameters, arguments, about, failure) \
    DEFINE(result, name, parameters) {                               \
        if (const auto error = FAULT(name, about)) return failure;   \
        return ORIGINAL(name) arguments;                             \
    }

REPLACE(int, epoll_ctl, (int loop, int operation, int fd, epoll_event* event),
        (loop, operation, fd, event),
        (operation == EPOLL_CTL_ADD ? "add " : "remove ") + zem::roleOf(fd), -1)
REPLACE(ssize_t, read, (int fd, void* data, size_t size), (fd, data, size), zem::roleOf(fd), -1)
REPLACE(int, zap_client_notifier_init,
        (zap_service_object service, zap_os_params* params, zap_client_handle* notifier),
        (service, params, notifier), "", *error)
REPLACE(int, zap_client_register_notify_cb,
        (zap_client_handle notifier, zap_notify_cb callback, void* user),
        (notifier, callback, user), zem::given(notifier), *error)
REPLACE(int, zap_client_get_any_service, (zap_service_object service, zap_service_info* info),
        (service, info), "", *error)
REPLACE(int, zap_client_init,
        (zap_service_info * info, zap_service_object service, zap_ind_cb callback, void* user,
         zap_os_params* params, zap_client_handle* client),
        (info, service, callback, user, params, client), "", *error)
REPLACE(int, zap_client_register_error_cb,
        (zap_client_handle client, zap_error_cb callback, void* user), (client, callback, user),
        zem::given(client), *error)
REPLACE(int, zap_client_send_msg_sync,
        (zap_client_handle client, unsigned id, void* request, unsigned size, void* response,
         unsigned room, unsigned timeout),
        (client, id, request, size, response, room, timeout), softmodem::messageName(id), *error)
REPLACE(int, zap_client_message_decode,
        (zap_client_handle client, zap_message_kind kind, unsigned id, const void* data,
         unsigned size, void* message, unsigned room),
        (client, kind, id, data, size, message, room), zem::given(client), *error)
REPLACE(int, diag_open, (int options), (options), (++zem::calls().channels, ""), *error)

// What a handle's release returns changes nothing: one that stayed would be the other library's
// leak.
DEFINE(int, zap_client_release, (zap_client_handle handle)) {
    const auto error = FAULT(zap_client_release, zem::given(handle));
    const int result = ORIGINAL(zap_client_release)(handle);
    return error.value_or(result);
}

DEFINE(void, diag_close, ()) {
    --zem::calls().channels;
    ORIGINAL(diag_close)();
}

DEFINE(void, diag_emit, (const diag_message* message, const char* tag, const char* text)) {
    EXPECT_GT(zem::calls().channels, 0);
    zem::record(zem::kUnknown, text);
    if (!FAULT(diag_emit, "")) ORIGINAL(diag_emit)(message, tag, text);
}

// Lines for the other sink are only recorded.
DEFINE(int, __android_log_print, (int priority, const char*, const char* format, ...)) {
    constexpr zem::LogLevel kLevels[] = {zem::LOG_VERBOSE, zem::LOG_DEBUG, zem::LOG_INFO,
                                         zem::kUnknown,    zem::LOG_ERROR, zem::LOG_FATAL};
    EXPECT_STREQ(format, "%s");
    va_list args;
    va_start(args, format);
    zem::record(kLevels[priority - ANDROID_LOG_VERBOSE], va_arg(args, const char*));
    va_end(args);
    return 1;
}

// read(), where the compiler checks the buffer's size.
DEFINE(ssize_t, __read_chk, (int fd, void* data, size_t size, size_t room)) {
    if (FAULT(read, zem::roleOf(fd))) return -1;
    return ORIGINAL(__read_chk)(fd, data, size, room);
}

// The descriptor is signalled all the same: EAGAIN means that its counter is full.
DEFINE(ssize_t, write, (int fd, const void* data, size_t size)) {
    const auto error = FAULT(write, zem::roleOf(fd));
    const ssize_t written = ORIGINAL(write)(fd, data, size);
    zem::wrote(fd);
    if (!error) return written;
    errno = *error;
    return *error == zem::kShort ? 4 : -1;
}

// Fails for a descriptor that has been closed already.
DEFINE(int, close, (int fd)) {
    const int result = ORIGINAL(close)(fd);
    EXPECT_TRUE(result == 0 || !zem::isOwn(__builtin_return_address(0))) << fd;
    return result;
}

DEFINE(int, epoll_create1, (int flags)) {
    if (FAULT(epoll_create1, "")) return -1;
    return zem::created(ORIGINAL(epoll_create1)(flags), true);
}

DEFINE(int, eventfd, (unsigned value, int flags)) {
    if (FAULT(eventfd, "")) return -1;
    return zem::created(ORIGINAL(eventfd)(value, flags), false);
}

DEFINE(int, epoll_wait, (int loop, epoll_event* events, int size, int timeout)) {
    if (FAULT(epoll_wait, "")) return -1;
    {
        const auto lock = zem::locked();
        const bool wakes = zem::calls().failed.find("add wake") == std::string::npos;
        if (zem::counting && wakes) {
            EXPECT_EQ(timeout, -1) << "the loop turns for nothing";
        }
    }
    thread_local const zem::Waiter waiter;
    waiter.waitsOn(loop);
    const int count = ORIGINAL(epoll_wait)(loop, events, size, timeout);
    waiter.waitsOn(-1);
    return count;
}

// Called by the C++ library, which is not the program's code.
DEFINE(int, pthread_create,
       (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* data)) {
    if (const auto error = zem::fault("pthread_create", nullptr)) return *error;
    const int result = ORIGINAL(pthread_create)(thread, attributes, body, data);
    const auto lock = zem::locked();
    if (zem::counting && result == 0) ++zem::calls().threads;
    return result;
}

namespace zem {
namespace {

// What a failure takes away: callers' requests, the modem's answers, its indications, the notice
// that it has gone, the engine's answers (callers wait for its end), the process; and until when.
enum : unsigned { kRequests = 1, kModem = 2, kNews = 4, kNotice = 8, kAnswers = 16, kProcess = 32 };
enum Until { kStepEnds, kRestart, kInit };

constexpr int kAny = 1000;  // error
constexpr char kNotAdded[] = "Cannot add event handler";
constexpr char kNotRead[] = "Error while clearing the read buffer on fd *";

struct Row {
    const char* call;  // how its name begins, without "zap_client_"; the first row that fits counts
    const char* line;  // logged once; null: nothing is
    unsigned loses = 0;
    Until until = kStepEnds;
    LogLevel level = LOG_ERROR;
    int error = kAny;
};
constexpr Row kRows[] = {
    {"epoll_create1", "Cannot create epoll instance", kProcess},
    {"eventfd", "Cannot create eventfd instance", kProcess},
    {"pthread_create in init", "Manager::init(0) failed: %error", kRequests | kModem | kNews,
     kInit},
    {"pthread_create in second init", "Manager::init(0) failed: %error", 0, kStepEnds, kUnknown},
    {"epoll_ctl add wake", kNotAdded},
    {"epoll_ctl add svcUp", kNotAdded, kModem | kNews, kInit},
    {"epoll_ctl add error", kNotAdded, kNotice, kInit},
    {"epoll_ctl add indication", kNotAdded, kNews, kInit},
    {"epoll_ctl add request", kNotAdded, kAnswers, kInit},
    {"epoll_ctl remove", "Cannot remove event handler"},
    {"epoll_wait", "epoll_wait error"},
    {"read", nullptr, 0, kStepEnds, LOG_ERROR, EAGAIN},
    {"read wake", kNotRead, 0, kStepEnds, LOG_INFO},
    {"read", kNotRead},
    {"write wake", "Error in writing rv: %rv, error: %error", 0, kStepEnds, LOG_INFO},
    {"write svcUp", "error in writing rv:%rv, error:%error"},
    {"write error", "error in writing rv: %rv, error: %error"},
    {"write indication", "Error in writing rv: %rv, error: %error"},
    {"write request", "error in writing rv: %rv error: %error", kRequests},
    {"notifier_init", "zap_client_notifier_init error. ErrCode : -3", kModem | kNews, kInit},
    {"register_notify", "zap_client_register_notify_cb error. ErrCode : -3", kModem | kNews, kInit},
    {"get_any_service", "error get service.", kModem | kNews, kRestart},
    {"init", "zap_client_init error. ErrCode : -3", kModem | kNews, kInit},
    {"register_error", "zap_client_register_error_cb result: -3", kNotice, kInit, LOG_DEBUG},
    {"send_msg_sync bind", "Unable send bind req message", kModem | kNews, kRestart},
    {"send_msg_sync register", "Unable send indication req message", kNews, kRestart},
    {"send_msg_sync configure", "Unable send config req message", kNews, kRestart},
    {"send_msg_sync create", "Unable send ZAP_WDS_CREATE_PROFILE_REQ_V01 message", kModem},
    {"send_msg_sync modify", "Unable send ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01 message", kModem},
    {"send_msg_sync delete", "Unable send ZAP_WDS_DELETE_PROFILE_REQ_V01 message", kModem},
    {"send_msg_sync list", "Unable send ZAP_WDS_GET_PROFILE_LIST_REQ_V01 message", kModem},
    {"send_msg_sync get", "Unable send ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01 message", kModem},
    {"message_decode", "Unable to decode the nr status ind message", kNews},
    {"release", nullptr},
    {"diag_", nullptr},
};

// Errors that follow from what is lost.
constexpr char kFallout[] =
    "Unable (send|to cast to) .*|Error in getProfile|Manager not initialized!|Cannot remove event "
    "handler|ProfileCache: (null profile|[Ff]ailed to .*)|ZapWdsProxy notify cb: unsupported .*";

const Row* rowOf(std::string call, int error) {
    const std::string_view prefix = "zap_client_";
    if (call.rfind(prefix, 0) == 0) call.erase(0, prefix.size());
    const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& each) {
        return call.rfind(each.call, 0) == 0 && (each.error == kAny || each.error == error);
    });
    return row == std::end(kRows) ? nullptr : row;
}

// Ends the process when a life has not come to its end after a minute.
struct Watchdog {
    ~Watchdog() {
        over.set_value();
        thread.join();
    }
    std::promise<void> over;
    std::thread thread{[end = over.get_future()] {
        if (end.wait_for(std::chrono::minutes(1)) == std::future_status::ready) return;
        fprintf(stderr, "hung in step %s; call %d of %s was to fail with %d: %s\n",
                calls().step.c_str(), calls().number, calls().function.c_str(), calls().error,
                calls().failed.c_str());
        abort();
    }};
};

class FailingCallsTest : public PhoneTest {
  protected:
    // One life. The call of that number in that step fails, if there are as many.
    void play(const char* function, const std::string& step, int number, int error);

    const Row* row = nullptr;  // of the call that has failed
    std::set<const Row*> met;  // so far, with the level of their lines

  private:
    void live();
    // Does something, and checks whether it went as what is lost allows.
    void step(const char* name, unsigned needs, const std::function<bool()>& run);
    void settle();
    std::future<bool> callInVain();
    void checkLines();

    void init(bool useAndroidLog) {
        manager->init(0, useAndroidLog);
        LogWrapper::getInstance().setLogWriter(std::make_unique<Sink>());
        settle();
    }
    bool cached(const std::string& text) {
        const auto dump = manager->dump();
        const auto end = std::find(dump.begin(), dump.end(), "");  // the log follows
        return std::any_of(dump.begin(), end, [&text](const std::string& line) {
            return line.find("ApnName=" + text + ",") != std::string::npos;
        });
    }
    bool allRead() { return cached(apn) && cached("cdma"); }
    bool haveKey() {
        if (!key) key = manager->addProfile(transient("own"));
        return key != nullptr;
    }
    // How many lines begin like this.
    static ptrdiff_t logged(const char* beginning) {
        const auto lock = locked();
        return std::count_if(
            calls().lines.begin(), calls().lines.end(),
            [beginning](const Line& line) { return line.text.rfind(beginning, 0) == 0; });
    }
    // Whether the engine has heard of it.
    static bool drop(std::shared_ptr<IProfileKey>& last) {
        const auto before = logged("ProfileCache: releaseProfile");
        last.reset();
        return logged("ProfileCache: releaseProfile") == before + 1;
    }

    const Census baseline = Census::take();
    std::unique_ptr<Manager> manager;
    std::shared_ptr<IProfileKey> key;
    std::string apn;  // of the modem's own profile
    unsigned lost = 0;
    std::future<bool> waiter;  // in a call that nobody answers
};

void FailingCallsTest::live() {
    const unsigned call = kRequests | kModem;
    const FilterProfileParams own(named("own"));
    bool told = false;
    const auto deletes = [this](bool done, const auto& run) {
        const size_t before = modem.profiles().size();
        return done && run() && modem.profiles().size() == before - 1;
    };
    const auto dropKey = [this] { return drop(key); };
    step("init", kModem | kNews, [&] { return init(true), allRead(); });
    step("add", call, [&] { return haveKey(); });
    step("get", call, [&] { return haveKey() && manager->getProfile(key); });
    step("match", call, [&] { return haveKey() && manager->match(own, key); });
    step("filter", call, [&] {
        auto keys = haveKey() ? manager->filter(own) : decltype(manager->filter(own))();
        return keys.size() == 1 && drop(keys.front());
    });
    step("modify", call, [&] {
        if (!haveKey() || !manager->modifyProfile(with<ModifyProfileParams>(user("me")), key))
            return false;
        const auto params = manager->getProfile(key);
        return params && params->hasUserName();
    });
    step("report", call | kNews, [&] {
        if (!haveKey()) return false;
        key->registerExpirationListener([&told] { told = true; });
        modem.deleteProfile(Tech::k3gpp, static_cast<unsigned>(key->getProfileId()));
        settle();
        const bool noticed = told && !cached("own");
        return drop(key) && noticed;
    });
    step("drop", call, [&] { return deletes(haveKey(), dropKey); });
    step("delete", call, [&] {
        const bool gone = deletes(haveKey(), [&] { return manager->deleteProfile(key); });
        return key && drop(key) && gone;
    });
    step("restart", kModem | kNews | kNotice, [&] {
        modem.goDown();
        modem.modifyProfile({Tech::k3gpp, 1, {{"apn_name", apn = "other"}}});
        modem.comeUp();
        return settle(), allRead();
    });
    step("refresh", call | kNotice, [&] {
        manager->refresh(COMPLETE);
        return logged("ZEM refresh completed") == 1 && allRead();
    });
    step("second init", kModem | kNews, [&] { return init(false), allRead(); });
    step("use", call, [&] {
        const bool read = haveKey() && manager->getProfile(key);
        return deletes(key != nullptr, dropKey) && read;
    });
    step("end", 0, [&] { return manager.reset(), true; });
}

void FailingCallsTest::step(const char* name, unsigned needs, const std::function<bool()>& run) {
    const bool starts = name == std::string_view("second init");
    const bool restarts = name == std::string_view("restart");
    if (row && (row->until == kStepEnds || starts || (restarts && row->until == kRestart)))
        lost = 0;
    if ((lost & kAnswers) && needs) {
        if (!waiter.valid()) waiter = callInVain();
        return;
    }
    calls().step = name;
    counting = true;
    const bool worked = run();
    settle();
    counting = false;
    if (waiter.valid()) {
        EXPECT_FALSE(waiter.get());
    }
    if (!row && !calls().failed.empty()) {
        row = rowOf(calls().failed, calls().error);
        ASSERT_NE(row, nullptr) << calls().failed;
        lost = row->loses;
        if (apn == "other") lost &= ~kNotice;  // there is one restart
    }
    EXPECT_EQ(worked, (lost & needs) == 0) << name << " when this has failed: " << calls().failed;
}

// Until the modem has nothing to deliver, and every thread of the library waits for events of which
// none has come.
void FailingCallsTest::settle() {
    for (bool atRest = false; !atRest; std::this_thread::yield()) {
        auto lock = locked();
        const size_t before = calls().turns;
        lock.unlock();
        ASSERT_TRUE(modem.waitUntilIdle());
        lock.lock();
        atRest = calls().turns == before && calls().waiting.size() == calls().threads;
        for (const auto& [thread, loop] : calls().waiting) {
            pollfd events = {loop, POLLIN, 0};
            atRest = atRest && loop != -1 && poll(&events, 1, 0) == 0;
        }
    }
}

// Returns when the engine should have heard of the call.
std::future<bool> FailingCallsTest::callInVain() {
    const auto heard = [before = calls().requests] {
        return locked() && calls().requests > before;
    };
    auto call = std::async(std::launch::async, [this] { return !!manager->getProfile(nullptr); });
    while (!heard()) std::this_thread::yield();
    return call;
}

void FailingCallsTest::play(const char* function, const std::string& step, int number, int error) {
    modem.reset();
    apn = "net";
    modem.createProfileAt({Tech::k3gpp, 1, {{"apn_name", apn}, {"persistent", 1u}}});
    modem.createProfileAt({Tech::k3gpp2, 0, {{"apn_string_3gpp2", "cdma"}, {"persistent", 1u}}});
    row = nullptr;
    lost = 0;
    calls() = Calls();
    calls().function = function;
    calls().failingStep = step;
    calls().number = number;
    calls().error = error;

    manager = std::make_unique<Manager>();
    {
        const Watchdog watchdog;
        live();
    }
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(Census::settled(baseline), baseline);
    EXPECT_EQ(calls().channels, 0);
    for (const auto& [fd, role] : calls().roles)
        EXPECT_FALSE(EventManager::isApprovedFd(fd)) << role;
    // Without a client the library sends by a null handle.
    if (!row || !(row->loses & kModem)) {
        EXPECT_EQ(modem.counters().badHandles, 0u);
    }
    checkLines();
}

void FailingCallsTest::checkLines() {
    std::string expected = row && row->line ? row->line : "";
    expected =
        std::regex_replace(expected, std::regex("%rv"), calls().error == kShort ? "4" : "-1");
    expected = std::regex_replace(expected, std::regex("%error"), strerror(calls().error));
    const bool mayFollow = row && (row->loses || row->line == kNotAdded);
    size_t times = 0;
    for (const Line& line : calls().lines) {
        if (fnmatch(expected.c_str(), line.text.c_str(), 0) == 0) {
            ++times;
            EXPECT_TRUE(line.level == row->level || line.level == kUnknown) << line;
            if (line.level == row->level) met.insert(row);
        } else if (line.level == LOG_ERROR &&
                   line.text != "ProfileCache: token is not present or expired") {
            EXPECT_TRUE(mayFollow && std::regex_match(line.text, std::regex(kFallout))) << line;
        }
    }
    EXPECT_EQ(times, expected.empty() ? 0u : 1u) << expected;
    if (row && !row->line) met.insert(row);
}

TEST_F(FailingCallsTest, EachIsLoggedAndTakesAwayNoMoreThanItMust) {
    std::map<const char*, std::vector<int>> cases = {{"pthread_create", {EAGAIN}},
                                                     {"epoll_ctl", {ENOSPC}},
                                                     {"epoll_wait", {EINTR, EBADF}},
                                                     {"read", {EAGAIN, EIO}},
                                                     {"write", {EAGAIN, kShort}}};
    for (const auto* const function :
         {"zap_client_notifier_init", "zap_client_register_notify_cb", "zap_client_get_any_service",
          "zap_client_init", "zap_client_register_error_cb", "zap_client_send_msg_sync",
          "zap_client_message_decode", "zap_client_release", "diag_open", "diag_emit"}) {
        cases[function] = {kRefused};
    }
    for (const auto& [function, errors] : cases) {
        for (const int error : errors) {
            play(function, "", 0, error);
            const auto seen = calls().seen;
            EXPECT_FALSE(seen.empty()) << function;
            for (const auto& [step, count] : seen) {
                // Some lives have a call more or less, as events come one by one or together.
                for (int number = 1; number <= count || row; ++number) {
                    SCOPED_TRACE(testing::Message() << function << " " << number << " in " << step);
                    ASSERT_NO_FATAL_FAILURE(play(function, step, number, error));
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
    for (const Row& each : kRows)
        EXPECT_EQ(met.count(&each), each.loses & kProcess ? 0u : 1u) << each.call;
}

// Each time in a child.
TEST_F(FailingCallsTest, WithoutADescriptorTheProcessEnds) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const auto* const function : {"epoll_create1", "eventfd"}) {
        play(function, "", 0, EMFILE);
        const auto seen = calls().seen;
        EXPECT_EQ(seen.size(), 2u);
        for (const auto& [step, count] : seen) {
            // The second engine's line goes to the diagnostic channel.
            const std::string level = step == "init" ? "3" : "99";
            const std::string line = "\\[" + level + "\\] " + rowOf(function, EMFILE)->line;
            for (int number = 1; number <= count; ++number) {
                const auto die = [&, step = step] {
                    echoing = true;
                    play(function, step, number, EMFILE);
                };
                EXPECT_EXIT(die(), testing::KilledBySignal(SIGABRT), line);
            }
        }
    }
}

}  // namespace
}  // namespace zem
