// A general log that keeps its newest lines, beside the library's own.
#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/ringbuffer_sink.h>

#include <memory>

#include "LoggedText.h"

namespace {

void spdlogLine(benchmark::State& state, const char* zone) {
    zem::setTimeZone(zone);
    spdlog::logger log("ZEM", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(200));
    for (auto _ : state) log.info("Manager::match > {}", zem::kLoggedText);
}
BENCHMARK_CAPTURE(spdlogLine, TZ, "UTC")->UseRealTime();
BENCHMARK_CAPTURE(spdlogLine, noTZ, nullptr)->UseRealTime();

}  // namespace
