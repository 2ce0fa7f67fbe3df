#include <systemd/sd-bus.h>

#include "run.h"

static int set_up(void) {
    sd_bus* bus = NULL;
    const char* name = NULL;
    return sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, "unix:path=/tmp/bench-bus") >= 0 &&
           sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0 &&
           sd_bus_get_unique_name(bus, &name) >= 0;
}

int main(int argc, char** argv) {
    return run(argc > 1 ? argv[1] : "", set_up);
}
