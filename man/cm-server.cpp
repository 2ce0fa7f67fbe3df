// cm-server-man FOLDER: writes the man pages of cm-server's commands.
#include "ManPages.h"
#include "program.h"

int main(int argc, char** argv) {
    return quorvel::man::write_pages(
        quorvel::cm::describe,
        {8, "System Administration", QUORVEL_RELEASE, QUORVEL_RELEASE_DATE, {"--socket"}}, argc, argv);
}
