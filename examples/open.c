/* Opens the default connection, prints what it got, and closes it. */
#include <arpa/inet.h>
#include <quorvel/NetCM.h>
#include <semaphore.h>
#include <stdio.h>

static sem_t answered;
static NetCMConnInfo connection;
static int32_t result = -1;

/* Runs on a thread of the library; what the event points to is gone when it returns. */
static void on_event(NetCMEvent *event) {
    if (event->EventType > NETCM_EVENT_STOP_IND)
        return; /* not an end, and not an answer */
    result = event->Result;
    if (event->EventType == NETCM_EVENT_OPEN_RSP && result == 0)
        connection = *(NetCMConnInfo *)event->Data;
    sem_post(&answered);
}

int main(void) {
    char text[INET_ADDRSTRLEN];
    sem_init(&answered, 0, 0);
    if (NetCMClientRegister(on_event) == NETCM_SUCCESS &&
        NetCMConnectionOpen(&(int32_t){0}, 1) == NETCM_SUCCESS) /* 0: the default profile */
        sem_wait(&answered);
    if (result != 0)
        return fprintf(stderr, "no connection (%d)\n", result), 1;
    printf("interface   %s\n", connection.IfaceName);
    printf("address     %s\n", inet_ntop(AF_INET, connection.IpAddr.Addr, text, sizeof text));
    for (int i = 0; i < connection.DnsCount; i++)
        printf("DNS server  %s\n", inet_ntop(AF_INET, connection.DnsAddr[i].Addr, text, sizeof text));
    if (NetCMConnectionClose(connection.ProfileId) == NETCM_SUCCESS)
        sem_wait(&answered);
    return NetCMClientDeRegister() != NETCM_SUCCESS;
}
