/* app-name-probe ID [THREADS]: asks for an application's name and prints what came of it. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quorvel/NetCM.h"

enum { MAX_THREADS = 16, ROOM = NETCM_APP_NAME_SIZE + 1 };

typedef struct Answer {
    int32_t id;
    int result;
    char name[ROOM];
} Answer;

static int is_loaded(const char* library) {
    char line[4096];
    int found = 0;
    FILE* maps = fopen("/proc/self/maps", "re");
    while (maps != NULL && fgets(line, sizeof line, maps) != NULL)
        found |= strstr(line, library) != NULL;
    if (maps != NULL)
        fclose(maps);
    return found;
}

static void* ask(void* argument) {
    Answer* answer = argument;
    memset(answer->name, '#', ROOM);
    answer->result = NetCMClientGetAppName(answer->id, answer->name);
    return NULL;
}

static void print(const Answer* answer) {
    const int length = (int)strnlen(answer->name, NETCM_APP_NAME_SIZE);
    printf("%d [%.*s] %d%c\n", answer->result, length, answer->name, length,
           answer->name[NETCM_APP_NAME_SIZE]);
}

int main(int argc, char** argv) {
    static Answer answers[MAX_THREADS];
    pthread_t threads[MAX_THREADS];
    const int count = argc > 2 ? atoi(argv[2]) : 0;
    answers[0].id = argc > 1 ? atoi(argv[1]) : 0;

    printf("loaded %d\n", is_loaded("libgconf-2"));
    for (int i = 0; i < count; ++i) {
        answers[i].id = answers[0].id;
        pthread_create(&threads[i], NULL, ask, &answers[i]);
    }
    for (int i = 0; i < count; ++i)
        pthread_join(threads[i], NULL);
    if (count == 0)
        ask(&answers[0]);
    for (int i = 0; i < count || i == 0; ++i)
        print(&answers[i]);
    printf("loaded %d\n", is_loaded("libgconf-2"));
    return 0;
}
