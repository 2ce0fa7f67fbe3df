#include "run.h"

static int set_up(void) {
    return 1;
}

int main(int argc, char** argv) {
    return run(argc > 1 ? argv[1] : "", set_up);
}
