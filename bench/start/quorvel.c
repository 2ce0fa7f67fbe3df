#include "quorvel/NetCM.h"
#include "run.h"

static void on_event(NetCMEvent* event) {
    (void)event;
}

static int set_up(void) {
    return NetCMClientRegister(on_event) == NETCM_SUCCESS;
}

int main(int argc, char** argv) {
    return run(argc > 1 ? argv[1] : "", set_up);
}
