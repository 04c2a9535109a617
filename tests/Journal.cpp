#include "Journal.h"

#include <android/log.h>
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <softmodem/SoftModem.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

#include "diag_channel.h"
#include "wds_service_v01.h"
#include "zap_client.h"

namespace zem::journal {
namespace {

using Lock = std::unique_lock<std::mutex>;

thread_local const char* kind = "caller";

struct Engine;

struct Stage {
    std::mutex mutex;
    std::condition_variable changed;

    int out = -1;
    int silences = 0;
    std::map<std::string, std::string> descriptors;  // in the order in which they are first seen
    std::map<zap_client_handle, std::string> handles = {{nullptr, "null"}};

    struct Failure {
        int times, skip;
    };
    std::map<std::string, Failure> failures;
    std::deque<epoll_event> pretended;

    std::set<const Engine*> engines;
    int starting = 0;   // threads that have no name yet
    bool held = false;  // engines that begin wait

    // The modem's thread, with a callback for this client, and whether it may go on.
    zap_client_handle calling = nullptr;
    enum { kWaits, kMayCall, kCalls } turn = kWaits;
    std::set<zap_client_handle> released;

    template <class Condition>
    void wait(Lock& lock, const Condition& condition) {
        if (changed.wait_for(lock, std::chrono::seconds(60), condition)) return;
        put("# no rest within a minute\n");
        _exit(1);
    }

    template <class Change>
    void change(const Change& make) {
        const Lock lock(mutex);
        make(*this);
        changed.notify_all();
    }

    bool fails(const char* function) {
        const Lock lock(mutex);
        const auto failure = failures.find(function);
        if (failure == failures.end() || failure->second.skip-- > 0) return false;
        if (--failure->second.times == 0) failures.erase(failure);
        return true;
    }

    void put(const std::string& text) const {
        // Not by write(), which is this program's own.
        if (out != -1 && silences == 0) syscall(SYS_write, out, text.data(), text.size());
    }
};

// Never destroyed: the library is at work until the process has gone.
Stage& stage() {
    static Stage& instance = *new Stage;
    return instance;
}

// An engine's thread, for as long as it lives.
struct Engine {
    Engine() {
        stage().change([this](Stage& all) { all.engines.insert(this); });
    }
    ~Engine() {
        stage().change([this](Stage& all) { all.engines.erase(this); });
    }
    bool atRest() const {
        pollfd events = {waitsOn, POLLIN, 0};
        return waitsOn != -1 && poll(&events, 1, 0) == 0;
    }

    int waitsOn = -1;
};
thread_local std::unique_ptr<Engine> engine;

template <class Function>
Function* next(const char* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
// The definition that this program's own has taken the place of.
#define NEXT(function) next(#function, &(function))

// What comes before numbers that differ from run to run.
constexpr const char *kDigits = "0123456789", *kHexDigits = "0123456789abcdefx";
constexpr struct {
    std::string_view mark;
    const char *digits, *replacement;  // a descriptor has its own
} kVarying[] = {
    {"epollFd:", kDigits, nullptr},
    {"(int ", kDigits, nullptr},
    {"fd=", kDigits, nullptr},
    {" fd ", kDigits, nullptr},
    {" for ", kDigits, nullptr},
    {"descriptor '", kDigits, nullptr},
    {"descriptor ", kDigits, nullptr},
    {"EventCallback ", kHexDigits, "[address]"},
    {"void* ", kHexDigits, "[address]"},
    {"CloseCallback ", kHexDigits, "[address]"},
    {"callback:", kHexDigits, "[address]"},
    {"data:", kHexDigits, "[address]"},
    {"src/ZapWdsProxy:", kDigits, "[line]"},
    {"zapIndCb(...):", kDigits, "[line]"},
};

std::string normalised(std::string text) {
    // The parameters in a signature are written as the compiler likes.
    if (const size_t at = text.find("zapIndCb("); at != std::string::npos)
        text.replace(at, text.find(')') - at, "zapIndCb(...");
    auto& names = stage().descriptors;
    for (const auto& [mark, digits, replacement] : kVarying) {
        size_t from = text.find(mark);
        if (from == std::string::npos) continue;
        from += mark.size();
        const size_t size = std::min(text.find_first_not_of(digits, from), text.size()) - from;
        if (size == 0) continue;
        const auto name = "[" + std::to_string(names.size() + 1) + "]";
        text.replace(
            from, size,
            replacement ? replacement : names.emplace(text.substr(from, size), name).first->second);
    }
    return text;
}

std::string hex(unsigned number, int digits) {
    char text[16];
    snprintf(text, sizeof text, "%0*X", digits, number);
    return text;
}

std::string nameOf(zap_client_handle handle) {
    const Lock lock(stage().mutex);
    return stage().handles[handle];
}

void recordCall(const std::string& call, int result = 0) {
    record(". " + call + (result == 0 ? "" : " = " + std::to_string(result)));
}

// A call to the client library, which may be made to fail.
template <class Call>
int recorded(const char* function, const std::string& arguments, const Call& call) {
    const int result = stage().fails(function) ? -1 : call();
    recordCall(std::string(function) + "(" + arguments + ")", result);
    return result;
}

// ... that opens a handle.
template <class Call>
int opened(const char* function, const char* what, zap_client_handle* handle, const Call& call) {
    const int result = recorded(function, "", call);
    const Lock lock(stage().mutex);
    auto& names = stage().handles;
    if (result == 0) names[*handle] = what + (" " + std::to_string(names.size()));
    return result;
}

// The modem's call to the library, when its turn has come. Not made for a handle that has been
// released by then.
void deliver(zap_client_handle client, const std::string& what, const std::function<void()>& call) {
    Stage& all = stage();
    Lock lock(all.mutex);
    const auto end = [&] {
        all.calling = nullptr;
        all.turn = Stage::kWaits;
        all.changed.notify_all();
    };
    all.calling = client;
    all.changed.notify_all();
    all.changed.wait(lock,
                     [&] { return all.turn == Stage::kMayCall || all.released.count(client); });
    if (all.turn != Stage::kMayCall) return end();
    all.turn = Stage::kCalls;
    lock.unlock();
    record("< " + what);
    call();
    lock.lock();
    end();
}

// The library's callbacks, with its data. Kept for good: the modem may have a call under way.
template <class Callback>
struct Registered {
    Callback callback;
    void* user;
};
template <class Callback>
void* keep(Callback callback, void* user) {
    static auto& all = *new std::deque<Registered<Callback>>;
    const Lock lock(stage().mutex);
    return &all.emplace_back(Registered<Callback>{callback, user});
}
template <class Callback>
const Registered<Callback>& kept(void* user) {
    return *static_cast<Registered<Callback>*>(user);
}

void onService(zap_client_handle client, zap_service_object service, zap_service_event event,
               void* user) {
    const auto& to = kept<zap_notify_cb>(user);
    deliver(client, event == ZAP_SERVICE_UP ? "service up" : "service down",
            [&] { to.callback(client, service, event, to.user); });
}

void onIndication(zap_client_handle client, unsigned id, unsigned char* bytes, unsigned size,
                  void* user) {
    const auto& to = kept<zap_ind_cb>(user);
    deliver(client,
            "indication 0x" + hex(id, 4) + ", " + std::to_string(size) + " bytes" +
                nonZeroBytes(bytes, size),
            [&] { to.callback(client, id, bytes, size, to.user); });
}

void onError(zap_client_handle client, int error, void* user) {
    const auto& to = kept<zap_error_cb>(user);
    deliver(client, "error " + std::to_string(error), [&] { to.callback(client, error, to.user); });
}

}  // namespace

void begin(int fd) {
    stage().change([fd](Stage& all) { all.out = fd, all.held = true; });
}

void record(const std::string& text) {
    const Lock lock(stage().mutex);
    std::string line = normalised(text);
    for (size_t end = 0; (end = line.find('\n', end)) != std::string::npos; ++end)
        line.insert(end + 1, 9, ' ');
    stage().put((kind + std::string(7 - strlen(kind), ' ')) + line + "\n");
}

void heading(const std::string& text) {
    stage().change([&](Stage& all) { all.put("\n# " + text + "\n"); });
}

Silence::Silence() {
    stage().change([](Stage& all) { ++all.silences; });
}

Silence::~Silence() {
    stage().change([](Stage& all) { --all.silences; });
}

void fail(const std::string& function, int times, int skip) {
    record("~ " + function + " fails");
    stage().change([&](Stage& all) { all.failures[function] = {times, skip}; });
}

void pretend(const std::vector<epoll_event>& events) {
    stage().pretended.assign(events.begin(), events.end());
}

void as(const char* other, const std::function<void()>& action) {
    const char* const own = std::exchange(kind, other);
    action();
    kind = own;
}

void settle() {
    if (engine) return;
    Stage& all = stage();
    Lock lock(all.mutex);
    all.held = false;
    all.changed.notify_all();
    for (bool idle = false; !idle;) {
        all.wait(lock, [&] {
            return all.starting == 0 &&
                   std::all_of(all.engines.begin(), all.engines.end(),
                               [](const Engine* each) { return each->atRest(); });
        });
        if (all.calling) {
            all.turn = Stage::kMayCall;
            all.changed.notify_all();
            all.wait(lock, [&] { return all.turn == Stage::kWaits; });
        } else {
            lock.unlock();
            idle = softmodem::SoftModem::instance().waitUntilIdle(std::chrono::milliseconds(0));
            lock.lock();
            // Not idle: its thread is on the way here.
            all.changed.wait_for(lock, std::chrono::milliseconds(1),
                                 [&] { return idle || all.calling; });
        }
    }
    all.held = true;
}

void Writer::write(LogLevel level, std::string tag, std::string message) {
    const char letter = level < 6 ? "VDIEFA"[level] : '?';
    record(letter + (tag == kLogTag ? " " : " " + tag + ": ") + message);
}

std::string nonZeroBytes(const void* message, size_t size) {
    const auto* const bytes = static_cast<const unsigned char*>(message);
    std::string text;
    const auto isText = [&](size_t i) { return i < size && bytes[i] > ' ' && bytes[i] <= '~'; };
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] == 0) continue;
        text += "\n" + std::to_string(i) + ":";
        while (i < size && bytes[i] != 0) {
            if (isText(i) && isText(i + 1)) {
                text += " \"";
                while (isText(i)) text += static_cast<char>(bytes[i++]);
                text += '"';
            } else {
                text += " " + hex(bytes[i++], 2);
            }
        }
    }
    return text;
}

}  // namespace zem::journal

using namespace zem::journal;

extern "C" {

zap_service_object wds_get_service_object_v01(int major, int minor, int tool) {
    static const auto real = NEXT(wds_get_service_object_v01);
    if (strcmp(kind, "modem") == 0) return real(major, minor, tool);
    const bool fails = stage().fails("wds_get_service_object_v01");
    recordCall("wds_get_service_object_v01(" + std::to_string(major) + ", " +
                   std::to_string(minor) + ", " + std::to_string(tool) + ")",
               fails ? -1 : 0);
    return fails ? nullptr : real(major, minor, tool);
}

int zap_client_notifier_init(zap_service_object service, zap_os_params* params,
                             zap_client_handle* notifier) {
    return opened("zap_client_notifier_init", "notifier", notifier,
                  [&] { return NEXT(zap_client_notifier_init)(service, params, notifier); });
}

int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb callback, void* user) {
    return recorded("zap_client_register_notify_cb", nameOf(notifier), [&] {
        return NEXT(zap_client_register_notify_cb)(notifier, onService, keep(callback, user));
    });
}

int zap_client_get_any_service(zap_service_object service, zap_service_info* info) {
    return recorded("zap_client_get_any_service", "",
                    [&] { return NEXT(zap_client_get_any_service)(service, info); });
}

int zap_client_init(zap_service_info* info, zap_service_object service, zap_ind_cb callback,
                    void* user, zap_os_params* params, zap_client_handle* client) {
    return opened("zap_client_init", "client", client, [&] {
        return NEXT(zap_client_init)(info, service, onIndication, keep(callback, user), params,
                                     client);
    });
}

int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback, void* user) {
    return recorded("zap_client_register_error_cb", nameOf(client), [&] {
        return NEXT(zap_client_register_error_cb)(client, onError, keep(callback, user));
    });
}

int zap_client_send_msg_sync(zap_client_handle client, unsigned id, void* request, unsigned size,
                             void* response, unsigned responseSize, unsigned timeout) {
    record("> " + nameOf(client) + ", 0x" + hex(id, 4) + " " + softmodem::messageName(id) + ", " +
           std::to_string(size) + " bytes, " + std::to_string(timeout) + " ms" +
           nonZeroBytes(request, size));
    const int result =
        NEXT(zap_client_send_msg_sync)(client, id, request, size, response, responseSize, timeout);
    zap_response_type_v01 answer = {};
    memcpy(&answer, response, sizeof answer);
    if (result != 0) record(". fails with " + std::to_string(result));
    if (answer.result != 0) record(". refused with error " + std::to_string(answer.error));
    return result;
}

int zap_client_message_decode(zap_client_handle client, zap_message_kind of, unsigned id,
                              const void* bytes, unsigned size, void* out, unsigned outSize) {
    return recorded("zap_client_message_decode", nameOf(client) + ", 0x" + hex(id, 4), [&] {
        return NEXT(zap_client_message_decode)(client, of, id, bytes, size, out, outSize);
    });
}

int zap_client_release(zap_client_handle handle) {
    recordCall("zap_client_release(" + nameOf(handle) + ")");
    stage().change([handle](Stage& all) { all.released.insert(handle); });
    return NEXT(zap_client_release)(handle);
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const bool plain = strcmp(format, "%s") == 0;
    record("log " + std::to_string(priority) + " " + tag + ": " + (plain ? "" : format) + text);
    return 0;
}

int diag_open(int options) {
    recordCall("diag_open(" + std::to_string(options) + ")");
    return 0;
}

void diag_close() {
    recordCall("diag_close()");
}

void diag_emit(const diag_message* message, const char* first, const char* second) {
    record("diag " + std::to_string(message->line) + ", " + std::to_string(message->subsystem) +
           ", " + std::to_string(message->mask) + ", " + message->file + ", \"" + message->format +
           "\": " + first + ": " + second);
}

int gettimeofday(timeval* now, void*) noexcept {
    static std::atomic<int> calls{0};
    const int ms = 123 + calls++;  // passed since a certain second
    *now = {1762677000 + ms / 1000, ms % 1000 * 1000 + 999};
    return 0;
}

int epoll_create1(int flags) noexcept {
    if (!stage().fails("epoll_create1")) return NEXT(epoll_create1)(flags);
    errno = EMFILE;
    return -1;
}

int eventfd(unsigned value, int flags) noexcept {
    if (!stage().fails("eventfd")) return NEXT(eventfd)(value, flags);
    errno = EMFILE;
    return -1;
}

ssize_t write(int fd, const void* bytes, size_t size) {
    static const auto real = NEXT(write);
    if (size != sizeof(uint64_t) || !stage().fails("write")) return real(fd, bytes, size);
    errno = EAGAIN;
    return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    if (stage().fails("pthread_create")) return EAGAIN;
    stage().change([](Stage& all) { ++all.starting; });
    return NEXT(pthread_create)(thread, attributes, body, argument);
}

// Each thread names itself first.
int pthread_setname_np(pthread_t thread, const char* name) noexcept {
    if (strcmp(name, "softmodem") == 0) kind = "modem";
    if (strcmp(name, "zem-engine") == 0) {
        kind = "engine";
        engine = std::make_unique<Engine>();
    }
    stage().change([](Stage& all) { --all.starting; });
    if (engine) {
        Lock lock(stage().mutex);
        stage().wait(lock, [] { return !stage().held; });
    }
    return NEXT(pthread_setname_np)(thread, name);
}

int epoll_wait(int fd, epoll_event* events, int most, int timeout) {
    static const auto real = NEXT(epoll_wait);
    if (stage().fails("epoll_wait")) {
        errno = EINTR;
        return -1;
    }
    if (!engine) {
        auto& pretended = stage().pretended;
        if (pretended.empty()) return real(fd, events, most, timeout);
        const int count = std::min(most, static_cast<int>(pretended.size()));
        std::copy_n(pretended.begin(), count, events);
        pretended.erase(pretended.begin(), pretended.begin() + count);
        return count;
    }
    stage().change([fd](Stage&) { engine->waitsOn = fd; });
    const int count = real(fd, events, most, timeout);
    stage().change([](Stage&) { engine->waitsOn = -1; });
    return count;
}

}  // extern "C"
