/* What a start program does once it is up:
 *   without an argument   nothing: it ends
 *   set-up                makes itself known to its server, and ends
 *   wait                  the same, tells on standard output and waits until standard input ends */
#include <string.h>
#include <unistd.h>

static inline int run(const char* mode, int (*set_up)(void)) {
    char byte = 0;
    if (mode[0] != '\0' && !set_up())
        return 1;
    if (strcmp(mode, "wait") == 0 && write(1, "", 1) == 1)
        return (int)read(0, &byte, 1);
    return 0;
}
