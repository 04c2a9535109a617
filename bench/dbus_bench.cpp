// The same question asked over a message bus, from process to process.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

// A program that says its first line when it is ready, and ends with this object or this process.
class Child {
  public:
    explicit Child(std::vector<const char*> command) {
        command.push_back(nullptr);
        int output[2];
        if (pipe2(output, O_CLOEXEC) != 0) abort();
        process = fork();
        if (process == 0) {
            // Nothing here but what a process with threads may do between fork and exec.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(output[1], STDOUT_FILENO);
            execvp(command[0], const_cast<char**>(command.data()));
            _exit(127);
        }
        close(output[1]);
        for (char c = 0; read(output[0], &c, 1) == 1 && c != '\n';) firstLine += c;
        close(output[0]);
    }
    ~Child() {
        kill(process, SIGTERM);
        waitpid(process, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    std::string firstLine;

  private:
    pid_t process = -1;
};

// Daemon, peer and our own end; the bus is private to the three.
class Bus {
  public:
    Bus() {
        sd_bus* opened = nullptr;
        connected = sd_bus_new(&opened) >= 0 &&
                    sd_bus_set_address(opened, daemon.firstLine.c_str()) >= 0 &&
                    sd_bus_set_bus_client(opened, 1) >= 0 && sd_bus_start(opened) >= 0;
        connection.reset(opened);
    }

    // What the peer says of a name, or -1.
    int ask(const char* name) const {
        sd_bus_message* reply = nullptr;
        int answer = -1;
        if (connected &&
            sd_bus_call_method(connection.get(), peer.firstLine.c_str(), "/zem", "zem.Bench",
                               "Match", nullptr, &reply, "s", name) >= 0) {
            sd_bus_message_read(reply, "b", &answer);
        }
        sd_bus_message_unref(reply);
        return answer;
    }

  private:
    struct Unref {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };

    // An abstract one leaves no file behind.
    const std::string address = "--address=unix:abstract=zem_bench." + std::to_string(getpid());
    const Child daemon{
        {BENCH_BUS, "--session", "--nofork", "--nopidfile", "--print-address=1", address.c_str()}};
    const Child peer{{BENCH_PEER, daemon.firstLine.c_str()}};
    std::unique_ptr<sd_bus, Unref> connection;
    bool connected = false;
};

void busCall(benchmark::State& state) {
    static const Bus bus;
    if (bus.ask("internet") != 1) state.SkipWithError("no answer");
    for (auto _ : state) benchmark::DoNotOptimize(bus.ask("internet"));
}
BENCHMARK(busCall)->UseRealTime();

}  // namespace
