// cm-server: the connection manager's daemon.
#include "run.h"

int main(int argc, char** argv) {
    return quorvel::cm::run(argc, argv);
}
