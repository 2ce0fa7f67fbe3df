/* trace-probe MODE: traces as the first argument says, and reports on standard output. */
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "debug_message.h"

enum { ERROR_MASK = 0x1000000, RESOURCE_MASK = 0x2000000, TRACE_MASK = 0x4000000 };
enum { THREADS = 8, LINES = 200 };

static void trace_each_level(void) {
    int results[4];
    results[0] = _debug_message(71, "unit/a", 0x5000100, ERROR_MASK, "Invalid socket FD [%d]\n", -1);
    results[1] = _debug_message(72, "unit/b", 0x5000100, RESOURCE_MASK, "PANIC!!! Memory not allocated\n");
    results[2] = _debug_message(73, "unit/c", 0x5000100, TRACE_MASK, "POLLIN \n");
    results[3] = _debug_message(74, "unit/d", 0x5000100, 0, "of no level\n");
    printf("%d %d %d %d\n", results[0], results[1], results[2], results[3]);
}

static void* trace_many(void* number) {
    for (int i = 0; i < LINES; ++i)
        _debug_message(i, "unit/thread", 0, ERROR_MASK, "thread %d line %d end\n", *(int*)number, i);
    return NULL;
}

static void trace_from_threads(void) {
    pthread_t threads[THREADS];
    int numbers[THREADS];
    for (int i = 0; i < THREADS; ++i) {
        numbers[i] = i;
        pthread_create(&threads[i], NULL, trace_many, &numbers[i]);
    }
    for (int i = 0; i < THREADS; ++i)
        pthread_join(threads[i], NULL);
}

static void trace_to_nobody(void) {
    int ends[2];
    if (pipe(ends) != 0)
        abort();
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    errno = ERANGE;
    const int result = _debug_message(1, "unit/a", 0, ERROR_MASK, "unheard\n");
    printf("%d %d\n", result, errno);
}

/* A formatted line would read from address 1. */
static void trace_what_cannot_be_formatted(void) {
    errno = ERANGE;
    const int result = _debug_message(1, "unit/a", 0, ERROR_MASK, "%s\n", (const char*)1);
    printf("%d %d\n", result, errno);
}

int main(int argc, char** argv) {
    const char* mode = argc > 1 ? argv[1] : "";
    if (strcmp(mode, "levels") == 0)
        trace_each_level();
    else if (strcmp(mode, "text") == 0 && argc == 3)
        _debug_message(1, "unit/a", 0, ERROR_MASK, "%s", argv[2]);
    else if (strcmp(mode, "threads") == 0)
        trace_from_threads();
    else if (strcmp(mode, "to-nobody") == 0)
        trace_to_nobody();
    else if (strcmp(mode, "unformattable") == 0)
        trace_what_cannot_be_formatted();
    else
        return 2;
    return 0;
}
