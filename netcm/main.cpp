// netcm: connections, profiles and names from the command line.
#include "Run.h"

int main(int argc, char** argv) {
    return quorvel::netcm::run(argc, argv);
}
