// The calls by which the library's threads meet, in place of the C library's: the program's own
// definitions come first, for the C++ library as well. On the threads of a scenario mutexes and
// condition variables are modelled here, and descriptors are real but never block; elsewhere the C
// library does it all.
#include "Interposed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "LocalLogBuffer.h"
#include "Scheduler.h"

#define ZEM_REAL(function)                                                                  \
    ([] {                                                                                   \
        static decltype(&(function)) found = nullptr;                                       \
        if (!found) found = reinterpret_cast<decltype(found)>(dlsym(RTLD_NEXT, #function)); \
        return found;                                                                       \
    }())

namespace zem::schedules {
namespace {

constexpr int kFirstDescriptor = 100;

struct Waiter {
    const pthread_cond_t* condition;
    bool notified;
};

std::map<const pthread_mutex_t*, unsigned> owners;  // of locked mutexes
std::vector<Waiter*> waiters;                       // in the order in which they came
std::map<pthread_t, Thread*> created;
std::set<int> descriptors;  // that are open
int newest = kFirstDescriptor;
bool logPassed;

bool isPassed(const pthread_mutex_t* mutex) {
    if (!logPassed) return false;
    const auto* const buffer = reinterpret_cast<const char*>(&LocalLogBuffer::getInstance());
    const auto* const place = reinterpret_cast<const char*>(mutex);
    return place >= buffer && place < buffer + sizeof(LocalLogBuffer);
}

void lock(pthread_mutex_t* mutex) {
    if (!isPassed(mutex)) reach("pthread_mutex_lock", [mutex] { return owners.count(mutex) == 0; });
    require(owners.emplace(mutex, current()).second, "a mutex that is passed over is free");
}

void unlock(pthread_mutex_t* mutex) {
    const auto owner = owners.find(mutex);
    require(owner != owners.end() && owner->second == current(), "the owner unlocks a mutex");
    owners.erase(owner);
}

// Time limits are no matter: one that must pass for a thread to go on hides that a wake-up is lost.
void wait(const pthread_cond_t* condition, pthread_mutex_t* mutex) {
    Waiter me = {condition, false};
    waiters.push_back(&me);
    unlock(mutex);
    reach("pthread_cond_wait", [&] { return me.notified && owners.count(mutex) == 0; });
    owners.emplace(mutex, current());
}

void notify(const pthread_cond_t* condition, bool all) {
    reach(all ? "pthread_cond_broadcast" : "pthread_cond_signal");
    std::vector<Waiter*> wakened;
    std::copy_if(waiters.begin(), waiters.end(), std::back_inserter(wakened),
                 [=](const Waiter* waiter) { return waiter->condition == condition; });
    if (!all && !wakened.empty()) wakened = {wakened[choose(wakened.size())]};
    for (Waiter* const waiter : wakened) {
        waiter->notified = true;
        waiters.erase(std::find(waiters.begin(), waiters.end(), waiter));
    }
}

// Each has a number of its own, so that a use after its end is never a use of another.
int opened(int fd) {
    const int own = fcntl(fd, F_DUPFD_CLOEXEC, newest++);
    ZEM_REAL(close)(fd);
    descriptors.insert(own);
    return own;
}

// -1 is what an owner without descriptor has: the call fails, as its caller expects.
void use(const char* call, int fd) {
    reach(call);
    if (fd != -1 && descriptors.count(fd) == 0)
        fail("%s on descriptor %d, which is closed", call, fd);
}

}  // namespace

void passOverLog(bool pass) {
    logPassed = pass;
}

bool passesOverLog() {
    return logPassed;
}

void endDescriptors() {
    for (const int fd : descriptors) fail("descriptor %d is never closed", fd);
}

void endInterposed() {
    endDescriptors();
    require(owners.empty() && waiters.empty(), "no mutex is locked at the end");
    created.clear();
    newest = kFirstDescriptor;
}

}  // namespace zem::schedules

using namespace zem::schedules;

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (!controlled()) return ZEM_REAL(pthread_mutex_lock)(mutex);
    lock(mutex);
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    if (!controlled()) return ZEM_REAL(pthread_mutex_unlock)(mutex);
    unlock(mutex);
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (!controlled()) return ZEM_REAL(pthread_cond_wait)(condition, mutex);
    wait(condition, mutex);
    return 0;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* time) {
    if (!controlled()) return ZEM_REAL(pthread_cond_timedwait)(condition, mutex, time);
    wait(condition, mutex);
    return 0;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* time) {
    if (!controlled()) return ZEM_REAL(pthread_cond_clockwait)(condition, mutex, clock, time);
    wait(condition, mutex);
    return 0;
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    if (!controlled()) return ZEM_REAL(pthread_cond_signal)(condition);
    notify(condition, false);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    if (!controlled()) return ZEM_REAL(pthread_cond_broadcast)(condition);
    notify(condition, true);
    return 0;
}

int pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    if (!controlled()) return ZEM_REAL(pthread_create)(id, attributes, body, argument);
    Thread& thread = adopt(body, argument);
    const int result = ZEM_REAL(pthread_create)(id, attributes, runThread, &thread);
    require(result == 0, "a thread can be made");
    created[*id] = &thread;
    reach("pthread_create");
    return 0;
}

int pthread_join(pthread_t id, void** result) {
    if (controlled()) {
        const auto found = created.find(id);
        require(found != created.end(), "a thread is joined once");
        const Thread& thread = *found->second;
        reach("pthread_join", [&thread] { return thread.finished; });
        created.erase(id);
    }
    return ZEM_REAL(pthread_join)(id, result);
}

int eventfd(unsigned initial, int flags) noexcept {
    const int fd = ZEM_REAL(eventfd)(initial, flags);
    return controlled() ? opened(fd) : fd;
}

int epoll_create1(int flags) noexcept {
    const int fd = ZEM_REAL(epoll_create1)(flags);
    return controlled() ? opened(fd) : fd;
}

int epoll_ctl(int loop, int operation, int fd, epoll_event* event) noexcept {
    if (controlled()) {
        use("epoll_ctl", loop);
        if (fd != -1 && descriptors.count(fd) == 0)
            fail("epoll_ctl for descriptor %d, which is closed", fd);
    }
    return ZEM_REAL(epoll_ctl)(loop, operation, fd, event);
}

int epoll_wait(int loop, epoll_event* events, int most, int limit) {
    if (!controlled()) return ZEM_REAL(epoll_wait)(loop, events, most, limit);
    reach("epoll_wait", [loop] {
        pollfd waiting = {loop, POLLIN, 0};
        return poll(&waiting, 1, 0) != 0;
    });
    use("epoll_wait", loop);
    return ZEM_REAL(epoll_wait)(loop, events, most, 0);
}

ssize_t read(int fd, void* buffer, size_t size) {
    if (controlled()) use("read", fd);
    return ZEM_REAL(read)(fd, buffer, size);
}

// What a hardened caller uses.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t room) {
    require(size <= room, "what is read has room");
    return read(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) {
    if (controlled()) use("write", fd);
    return ZEM_REAL(write)(fd, buffer, size);
}

int close(int fd) {
    if (controlled()) {
        use("close", fd);
        descriptors.erase(fd);
    }
    return ZEM_REAL(close)(fd);
}

}  // extern "C"
