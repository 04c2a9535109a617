// A general log that keeps its newest lines, beside the library's own.
#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <memory>
#include <mutex>
#include <string>

#include "LoggedText.h"

namespace {

// The log's own ring keeps lines as they were given, to be formatted when they are read: this one
// keeps their text.
class TextRing : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        lines.push_back(fmt::to_string(text));
    }
    void flush_() override {}

    spdlog::details::circular_q<std::string> lines{200};
};

void spdlogLine(benchmark::State& state, const char* zone) {
    zem::setTimeZone(zone);
    spdlog::logger log("ZEM", std::make_shared<TextRing>());
    for (auto _ : state) log.info("Manager::match > {}", zem::kLoggedText);
}
BENCHMARK_CAPTURE(spdlogLine, TZ, "UTC")->UseRealTime();
BENCHMARK_CAPTURE(spdlogLine, noTZ, nullptr)->UseRealTime();

}  // namespace
