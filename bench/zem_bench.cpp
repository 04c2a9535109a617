// What a caller pays: whole operations through libzem.so on the software modem, beside the bare
// hand-off between two threads that each of them cannot do without. The number behind a name is how
// many profiles of each technology there are.
#include <benchmark/benchmark.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "Phone.h"

namespace {

using zem::apnNameOf;
using zem::kFull;
using zem::Phone;

// One thread waits in epoll, the other hands it a number and waits for it to come back. Nothing is
// allocated or logged.
class BareHandoff {
  public:
    BareHandoff() {
        epoll_event interest{};
        interest.events = EPOLLIN;
        epoll_ctl(epoll, EPOLL_CTL_ADD, event, &interest);
        server = std::thread([this] { serve(); });
    }
    ~BareHandoff() {
        call(0);
        server.join();
        close(event);
        close(epoll);
    }
    BareHandoff(const BareHandoff&) = delete;
    BareHandoff& operator=(const BareHandoff&) = delete;

    int call(int request) {
        std::unique_lock lock(mutex);
        const uint64_t one = 1;
        if (write(event, &one, sizeof one) != sizeof one) return -1;
        slot = request;
        answered = false;
        condition.wait(lock, [this] { return answered; });
        return slot;
    }

  private:
    void serve() {
        for (bool more = true; more;) {
            epoll_event ready{};
            if (epoll_wait(epoll, &ready, 1, -1) != 1) continue;
            const std::lock_guard lock(mutex);
            for (uint64_t count; read(event, &count, sizeof count) == sizeof count;) {
            }
            more = slot != 0;
            answered = true;
            condition.notify_one();
        }
    }

    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    const int event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    std::mutex mutex;
    std::condition_variable condition;
    int slot = 0;
    bool answered = false;
    std::thread server;
};

void bareHandoff(benchmark::State& state) {
    BareHandoff handoff;
    for (auto _ : state) benchmark::DoNotOptimize(handoff.call(1));
}
BENCHMARK(bareHandoff)->UseRealTime();

zem::FilterProfileParams named(const std::string& name) {
    zem::FilterProfileParams filter;
    filter.setApnName(name);
    return filter;
}

void match(benchmark::State& state) {
    Phone phone(1);
    const auto key = phone.manager.filter({}).front();
    const zem::FilterProfileParams filter = named(apnNameOf(0));
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.match(filter, key));
}
BENCHMARK(match)->UseRealTime();

void getProfile(benchmark::State& state) {
    Phone phone(1);
    const auto key = phone.manager.filter({}).front();
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.getProfile(key));
}
BENCHMARK(getProfile)->UseRealTime();

void filterWithoutHit(benchmark::State& state) {
    Phone phone(static_cast<size_t>(state.range(0)));
    const zem::FilterProfileParams filter = named(apnNameOf(kFull));
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.filter(filter));
}
BENCHMARK(filterWithoutHit)->Arg(8)->Arg(64)->Arg(kFull)->UseRealTime();

// The keys' end included.
void filterAll(benchmark::State& state) {
    Phone phone(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.filter({}));
}
BENCHMARK(filterAll)->Arg(8)->Arg(64)->Arg(kFull)->UseRealTime();

void addAndDelete(benchmark::State& state) {
    Phone phone(1);
    zem::AddProfileParams params(false, zem::TechType::TECH_3GPP, false);
    params.setApnName("internet");
    for (auto _ : state) {
        if (!phone.manager.addProfile(params)) state.SkipWithError("the modem refused");
    }
}
BENCHMARK(addAndDelete)->UseRealTime();

void refresh(benchmark::State& state) {
    Phone phone(static_cast<size_t>(state.range(0)));
    for (auto _ : state) phone.manager.refresh(zem::COMPLETE);
}
BENCHMARK(refresh)->Arg(8)->Arg(64)->Arg(kFull)->UseRealTime();

}  // namespace
