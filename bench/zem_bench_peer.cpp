// zem_bench_peer ADDRESS: answers on the message bus there whatever it is asked, until it is
// killed. Its one line of output is its name on the bus.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <cstring>

namespace {

int answer(sd_bus_message* message, void*, sd_bus_error*) {
    const char* name = "";
    const int result = sd_bus_message_read(message, "s", &name);
    return result < 0 ? result
                      : sd_bus_reply_method_return(message, "b", strcmp(name, "internet") == 0);
}

}  // namespace

int main(int, char** argv) {
    sd_bus* bus = nullptr;
    const char* name = nullptr;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, argv[1]) < 0 ||
        sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0 ||
        sd_bus_add_object(bus, nullptr, "/zem", answer, nullptr) < 0 ||
        sd_bus_get_unique_name(bus, &name) < 0) {
        return 1;
    }
    puts(name);
    fflush(stdout);
    for (int done = 0; done >= 0;) {
        done = sd_bus_process(bus, nullptr);
        if (done == 0) done = sd_bus_wait(bus, UINT64_MAX);
    }
}
