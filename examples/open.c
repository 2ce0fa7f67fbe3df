/* Opens the default connection, prints what it got, and closes it. */
#include <arpa/inet.h>
#include <quorvel/NetCM.h>
#include <semaphore.h>
#include <stdio.h>

static sem_t answered;
static int32_t open_profile;

static void print(const char *what, const NetCMAddr *address) {
    char text[INET_ADDRSTRLEN];
    printf("%-12s%s\n", what, inet_ntop(AF_INET, address->Addr, text, sizeof text));
}

/* Runs on a thread of the library; what the event points to is gone when it returns. */
static void on_event(NetCMEvent *event) {
    if (event->EventType == NETCM_EVENT_OPEN_RSP && event->Result == 0) {
        const NetCMConnInfo *connection = event->Data;
        open_profile = connection->ProfileId;
        printf("%-12s%s\n", "interface", connection->IfaceName);
        print("address", &connection->IpAddr);
        for (int i = 0; i < connection->DnsCount; i++)
            print("DNS server", &connection->DnsAddr[i]);
    }
    if (event->EventType == NETCM_EVENT_OPEN_RSP || event->EventType == NETCM_EVENT_CLOSE_RSP)
        sem_post(&answered);
}

int main(void) {
    sem_init(&answered, 0, 0);
    uint32_t status = NetCMClientRegister(on_event);
    if (status == NETCM_SUCCESS)
        status = NetCMConnectionOpen(&(int32_t){0}, 1); /* 0: the default profile */
    if (status == NETCM_SUCCESS)
        sem_wait(&answered);
    if (NetCMConnectionClose(open_profile) == NETCM_SUCCESS)
        sem_wait(&answered);
    NetCMClientDeRegister();
    if (open_profile == 0)
        fprintf(stderr, "no connection (status %u)\n", status);
    return open_profile == 0;
}
