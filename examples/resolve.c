/* Resolves a host name over the default profile's connection: example-resolve NAME */
#include <arpa/inet.h>
#include <quorvel/NetCM.h>
#include <quorvel/NetDNS.h>
#include <semaphore.h>
#include <stdio.h>

static sem_t answered;
static int32_t profile, result;

static void on_event(NetCMEvent *event) {
    if (event->EventType <= NETCM_EVENT_CLOSE_RSP) {
        profile = event->ProfileId;
        result = event->Result;
        sem_post(&answered);
    }
}

static int print_host(const char *name) {
    const struct hostent *host = NetDNSGetHostByName(profile, name);
    if (host == NULL || host->h_name == NULL)
        return fprintf(stderr, "%s: not resolved\n", name), 1;
    char text[INET_ADDRSTRLEN];
    for (char **address = host->h_addr_list; *address != NULL; address++)
        printf("%s  %s\n", host->h_name, inet_ntop(AF_INET, *address, text, sizeof text));
    return 0;
}

int main(int argc, char **argv) {
    const int32_t default_profile = 0;
    if (argc != 2)
        return fprintf(stderr, "usage: %s NAME\n", argv[0]), 2;
    sem_init(&answered, 0, 0);
    uint32_t status = NetCMClientRegister(on_event);
    if (status == NETCM_SUCCESS)
        status = NetCMConnectionOpen(&default_profile, 1);
    if (status != NETCM_SUCCESS)
        return fprintf(stderr, "no connection: status %u\n", status), 1;
    sem_wait(&answered);
    if (result != 0)
        return fprintf(stderr, "no connection: result %d\n", result), 1;

    const int failed = print_host(argv[1]);

    if (NetCMConnectionClose(profile) == NETCM_SUCCESS)
        sem_wait(&answered);
    NetCMClientDeRegister();
    return failed;
}
