/* An application that has variables of its own by the names of the library's data, as it may: C knows one
 * space of names, and nobody looks through all of a library's before he calls something `logfile`. It lives a
 * whole life, looks at its variables at the end. They are smaller than the library's, so that one that is
 * written to takes others along. */
#include <semaphore.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

/* What of the interface is used here: the headers would declare the data. */
typedef struct NetCMEvent {
    uint32_t EventType;
    int32_t ProfileId;
    int32_t Result;
    void* Data;
} NetCMEvent;
uint32_t NetCMClientRegister(void (*callback)(NetCMEvent* event));
uint32_t NetCMClientDeRegister(void);
uint32_t NetCMConnectionOpen(const int32_t* profiles, int32_t count);
uint32_t NetCMConnectionClose(int32_t profile);
void NetDebugPrint(const char* file, int line, const char* format, ...);
int NetCleanLogfile(void);
void dns_getenv(void);

#define KEPT \
    { 'k', 'e', 'p', 't' }
char _dns_debug[4] = KEPT;
char NetCMAppMutex[4] = KEPT;
char EvtDeliveryHandle[4] = KEPT;
char PendingEventRecord[4] = KEPT;
char g_NetCMClientAppInfo[4] = KEPT;
char logfile[4] = KEPT;
char pipe_fds[4] = KEPT;
char ps_call_act_time[4] = KEPT;
char ps_call_deact_time[4] = KEPT;

/* Asks the compiler's own runtime not to mind that there are two of each. */
const char* __asan_default_options(void);
const char* __asan_default_options(void) {
    return "detect_odr_violation=0";
}

static sem_t told;
static int wrong;

static void check(int holds, const char* what) {
    if (!holds) {
        printf("not so: %s\n", what);
        ++wrong;
    }
}

static void is_kept(const char* variable, const char* name) {
    check(memcmp(variable, "kept", 4) == 0, name);
}

static void on_event(NetCMEvent* event) {
    check(event->Result == 0, "an event of success");
    sem_post(&told);
}

int main(void) {
    const int32_t profile = 1;
    sem_init(&told, 0, 0);
    check(NetCMClientRegister(on_event) == 0, "registered");
    check(NetCMConnectionOpen(&profile, 1) == 0, "asked to open");
    sem_wait(&told);
    NetCleanLogfile();
    NetDebugPrint(__FILE__, __LINE__, "a line\n");
    dns_getenv();
    check(NetCMConnectionClose(profile) == 0, "asked to close");
    sem_wait(&told);
    check(NetCMClientDeRegister() == 0, "deregistered");
    is_kept(_dns_debug, "_dns_debug");
    is_kept(NetCMAppMutex, "NetCMAppMutex");
    is_kept(EvtDeliveryHandle, "EvtDeliveryHandle");
    is_kept(PendingEventRecord, "PendingEventRecord");
    is_kept(g_NetCMClientAppInfo, "g_NetCMClientAppInfo");
    is_kept(logfile, "logfile");
    is_kept(pipe_fds, "pipe_fds");
    is_kept(ps_call_act_time, "ps_call_act_time");
    is_kept(ps_call_deact_time, "ps_call_deact_time");
    return wrong;
}
