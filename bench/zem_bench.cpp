// Whole operations as a caller of the library has them, each beside what it cannot be cheaper than.
// bench/ratios.py knows which belong together. The number behind a name is how many profiles there
// are of both technologies.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

#include "BareHandoff.h"
#include "DirectModem.h"
#include "Phone.h"
#include "ProfileBuilders.h"
#include "ProfileKey.h"

namespace {

using zem::BareHandoff;
using zem::DirectModem;
using zem::kFull;
using zem::Phone;

// Of each iteration this step alone counts.
template <class Step>
void timed(benchmark::State& state, const Step& step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(taken.count());
}

void bareHandoff(benchmark::State& state) {
    BareHandoff handoff;
    for (auto _ : state) benchmark::DoNotOptimize(handoff.call(1));
}
BENCHMARK(bareHandoff)->UseRealTime();

void match(benchmark::State& state) {
    Phone phone({1, 1});
    const auto key = phone.manager.filter({}).front();
    const auto filter = zem::with<zem::FilterProfileParams>(zem::apn(zem::apnNameOf(0)));
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.match(filter, key));
}
BENCHMARK(match)->UseRealTime();

void getProfile(benchmark::State& state) {
    Phone phone({1, 1});
    const auto key = phone.manager.filter({}).front();
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.getProfile(key));
}
BENCHMARK(getProfile)->UseRealTime();

// The keys' end included, each of which is a call.
void filterWithHits(benchmark::State& state) {
    Phone phone({kFull, 0});
    for (auto _ : state) benchmark::DoNotOptimize(phone.manager.filter({}));
}
BENCHMARK(filterWithHits)->UseRealTime();

void handoffsAndKeys(benchmark::State& state) {
    struct KeySized {
        alignas(zem::ProfileKey) char bytes[sizeof(zem::ProfileKey)];
    };
    BareHandoff handoff;
    for (auto _ : state) {
        for (size_t i = 0; i < kFull; ++i) {
            benchmark::DoNotOptimize(std::make_shared<KeySized>());
            benchmark::DoNotOptimize(handoff.call(1));
        }
    }
}
BENCHMARK(handoffsAndKeys)->UseRealTime();

void refresh(benchmark::State& state) {
    const auto half = static_cast<size_t>(state.range(0)) / 2;
    Phone phone({half, half});
    for (auto _ : state) phone.manager.refresh(zem::COMPLETE);
}
BENCHMARK(refresh)->Arg(8)->Arg(32)->Arg(128)->Arg(2 * kFull)->UseRealTime();

void directRefresh(benchmark::State& state) {
    DirectModem modem({kFull, kFull});
    for (auto _ : state) benchmark::DoNotOptimize(modem.readAll());
}
BENCHMARK(directRefresh)->UseRealTime();

template <class Client>
void add(benchmark::State& state) {
    Client client({1, 1});
    for (auto _ : state) {
        decltype(client.add()) added;
        timed(state, [&] { added = client.add(); });
        client.remove(added);
    }
}
BENCHMARK_TEMPLATE(add, Phone)->Name("add")->UseManualTime();
BENCHMARK_TEMPLATE(add, DirectModem)->Name("directAdd")->UseManualTime();

template <class Client>
void modify(benchmark::State& state) {
    Client client({1, 1});
    const auto added = client.add();
    for (auto _ : state) client.changeUserName(added);
}
BENCHMARK_TEMPLATE(modify, Phone)->Name("modify")->UseRealTime();
BENCHMARK_TEMPLATE(modify, DirectModem)->Name("directModify")->UseRealTime();

template <class Client>
void remove(benchmark::State& state) {
    Client client({1, 1});
    for (auto _ : state) {
        const auto added = client.add();
        timed(state, [&] { client.remove(added); });
    }
}
BENCHMARK_TEMPLATE(remove, Phone)->Name("remove")->UseManualTime();
BENCHMARK_TEMPLATE(remove, DirectModem)->Name("directRemove")->UseManualTime();

}  // namespace
