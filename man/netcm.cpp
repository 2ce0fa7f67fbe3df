// netcm-man FOLDER: writes the man pages of netcm's commands.
#include "Command.h"
#include "ManPages.h"

int main(int argc, char** argv) {
    return quorvel::man::write_pages(
        quorvel::netcm::describe,
        {1, "User Commands", QUORVEL_RELEASE, QUORVEL_RELEASE_DATE, {"--json", "--timeout"}}, argc, argv);
}
