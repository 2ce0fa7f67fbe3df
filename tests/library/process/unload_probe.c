/* unload-probe LIBRARY leave: loads the library, registers, deregisters, unloads it, and all of it once more.
 * unload-probe LIBRARY stay: registers, unloads the library, and waits for an event. */
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "quorvel/NetCM.h"

static const char* path;
static int leaves;
static sem_t told;

typedef uint32_t (*Register)(NetCMEventCallback callback);
typedef uint32_t (*Plain)(void);
typedef uint32_t (*Ask)(uint32_t net_iface, uint32_t* status);

/* A pointer to data becomes one to a function by its bytes: ISO C knows no conversion. */
static void find(void* library, const char* name, void* function) {
    void* const found = dlsym(library, name);
    if (found == NULL) {
        fprintf(stderr, "%s: %s\n", name, dlerror());
        exit(1);
    }
    memcpy(function, &found, sizeof found);
}

static void* load(void) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return library;
}

static void on_event(NetCMEvent* event) {
    printf("event %u\n", event->EventType);
    fflush(stdout);
    sem_post(&told);
}

/* What the library has hung into this process is still there when it forks. */
static void fork_once(void) {
    int status = -1;
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, &status, 0);
    printf("forked %d\n", status);
}

static void* use_and_unload(void* unused) {
    void* const library = load();
    Register register_client;
    Plain deregister;
    Ask ask;
    uint32_t status = 0;
    find(library, "NetCMClientRegister", &register_client);
    find(library, "NetCMClientDeRegister", &deregister);
    find(library, "NetCMGetNetworkStatus", &ask);
    printf("registered %u\n", register_client(on_event));
    printf("asked %u\n", ask(NETCM_IFACE_PDP, &status));
    if (leaves)
        printf("deregistered %u\n", deregister());
    printf("unloaded %d\n", dlclose(library));
    fork_once();
    fflush(stdout);
    return unused;
}

/* The thread that has been in the library ends when it is unloaded. */
static void use_on_a_thread(void) {
    pthread_t thread;
    pthread_create(&thread, NULL, use_and_unload, NULL);
    pthread_join(thread, NULL);
}

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    path = argv[1];
    leaves = strcmp(argv[2], "leave") == 0;
    sem_init(&told, 0, 0);
    use_on_a_thread();
    if (leaves)
        use_on_a_thread();
    else
        sem_wait(&told);
    printf("alive\n");
    return 0;
}
