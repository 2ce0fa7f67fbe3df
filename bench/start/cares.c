#include <ares.h>

#include "run.h"

static int set_up(void) {
    ares_channel channel;
    return ares_library_init(ARES_LIB_INIT_ALL) == ARES_SUCCESS && ares_init(&channel) == ARES_SUCCESS;
}

int main(int argc, char** argv) {
    return run(argc > 1 ? argv[1] : "", set_up);
}
