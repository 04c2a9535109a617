// What syscalls_test.sh traces: requests of one kind after another, with a getppid() before the
// first kind and after each.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <softmodem/SoftModem.h>
#include <zem/Manager.h>

#include "LogWrapper.h"

namespace {

constexpr int kRequests = 1000;

class CountingWriter : public zem::LogWriter {
  public:
    explicit CountingWriter(std::atomic<int>& lines) : lines(lines) {}
    void write(zem::LogLevel, std::string, std::string) override { ++lines; }
    int convertPrio(zem::LogLevel) override { return 0; }

  private:
    std::atomic<int>& lines;
};

template <class Request>
void repeat(std::atomic<int>& lines, Request request) {
    for (int i = 0; i < 300; ++i) request();  // the log has all the memory that it keeps after this
    lines = 0;
    getppid();
    for (int i = 0; i < kRequests; ++i) request();
    getppid();
    if (lines < kRequests) abort();
}

}  // namespace

int main() {
    softmodem::SoftModem& modem = softmodem::SoftModem::instance();
    modem.createProfile({softmodem::Tech::k3gpp, 0, {{"apn_name", "internet"}}});
    zem::Manager manager;
    manager.init(0, false);
    while (manager.filter({}).empty()) std::this_thread::yield();
    modem.waitUntilIdle();
    std::atomic<int> lines{0};
    zem::LogWrapper::getInstance().setLogWriter(std::make_unique<CountingWriter>(lines));

    zem::FilterProfileParams filter;
    filter.setApnName("internet");
    const auto key = manager.filter(filter).front();
    repeat(lines, [&] { manager.match(filter, key); });
    repeat(lines, [&] { manager.getProfile(key); });
    filter.setApnName("nowhere");
    repeat(lines, [&] { manager.filter(filter); });
    zem::LogWrapper::getInstance().setLogWriter(nullptr);
}
