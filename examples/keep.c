/* Keeps the default connection open for some seconds (10, or as many as are given): when it ends, whether by the
 * network or because the CM server has gone, it is opened again. Registration comes back by itself. */
#define _POSIX_C_SOURCE \
    200809L /* clock_gettime and sem_timedwait, also where a compiler is asked for ISO C */
#include <quorvel/NetCM.h>
#include <semaphore.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static sem_t changed;
static atomic_int profile; /* of the connection that is up; 0: none */
static atomic_int waiting; /* for an open response */

/* Runs on a thread of the library: it notes what has happened, and leaves the work to main(). */
static void on_event(NetCMEvent *event) {
    if (event->EventType == NETCM_EVENT_OPEN_RSP) {
        waiting = 0;
        profile = event->Result == 0 ? event->ProfileId : 0;
        printf("open response, result %d\n", event->Result);
    } else if (event->EventType == NETCM_EVENT_STOP_IND || event->EventType == NETCM_EVENT_CLOSE_RSP) {
        profile = 0;
        printf("the connection has ended, result %d\n", event->Result);
    }
    sem_post(&changed);
}

static void open_again(void) {
    const int32_t default_profile = 0;
    waiting = 1;
    const uint32_t status = NetCMConnectionOpen(&default_profile, 1);
    if (status != NETCM_SUCCESS) {
        waiting = 0;
        printf("not yet (status %u)\n", status);
    }
}

int main(int argc, char **argv) {
    struct timespec end;
    setvbuf(stdout, NULL, _IOLBF, 0);
    sem_init(&changed, 0, 0);
    if (NetCMClientRegister(on_event) != NETCM_SUCCESS)
        return fprintf(stderr, "no CM server\n"), 1;
    clock_gettime(CLOCK_REALTIME, &end);
    for (end.tv_sec += argc > 1 ? atoi(argv[1]) : 10; time(NULL) < end.tv_sec;) {
        if (profile == 0 && waiting == 0)
            open_again();
        const struct timespec soon = {time(NULL) + 1, 0};
        sem_timedwait(&changed, &soon);
    }
    if (profile != 0 && NetCMConnectionClose(profile) == NETCM_SUCCESS)
        while (profile != 0)
            sem_wait(&changed);
    return (int)NetCMClientDeRegister();
}
