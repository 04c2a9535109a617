// A general event loop, whose thread a call is posted to, beside the library's own.
#include <benchmark/benchmark.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_future.hpp>
#include <future>
#include <thread>

namespace {

void asioPost(benchmark::State& state) {
    boost::asio::io_context context(1);
    auto work = boost::asio::make_work_guard(context);
    std::thread server([&context] { context.run(); });
    for (auto _ : state) {
        auto answer = boost::asio::post(context, boost::asio::use_future([] { return true; }));
        benchmark::DoNotOptimize(answer.get());
    }
    work.reset();
    server.join();
}
BENCHMARK(asioPost)->UseRealTime();

}  // namespace
