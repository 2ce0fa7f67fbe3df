/* Opens the default profile, prints the connection, and closes it. */
#include <arpa/inet.h>
#include <quorvel/NetCM.h>
#include <semaphore.h>
#include <stdio.h>

static sem_t answered;
static NetCMConnInfo connection;
static int32_t result;

static void on_event(NetCMEvent *event) { /* on a thread of the library; what it points to ends with the call */
    if (event->EventType == NETCM_EVENT_OPEN_RSP && event->Result == 0)
        connection = *(NetCMConnInfo *)event->Data;
    if (event->EventType <= NETCM_EVENT_CLOSE_RSP) {
        result = event->Result;
        sem_post(&answered);
    }
}

static void print_address(const char *name, const NetCMAddr *address) {
    char text[INET_ADDRSTRLEN];
    printf("%-10s %s\n", name, inet_ntop(AF_INET, address->Addr, text, sizeof text));
}

int main(void) {
    const int32_t default_profile = 0;
    sem_init(&answered, 0, 0);
    uint32_t status = NetCMClientRegister(on_event);
    if (status == NETCM_SUCCESS)
        status = NetCMConnectionOpen(&default_profile, 1);
    if (status != NETCM_SUCCESS)
        return fprintf(stderr, "no connection: status %u\n", status), 1;
    sem_wait(&answered);
    if (result != 0)
        return fprintf(stderr, "no connection: result %d\n", result), 1;

    printf("%-10s %s\n", "interface", connection.IfaceName);
    print_address("address", &connection.IpAddr);
    for (int i = 0; i < connection.DnsCount; i++)
        print_address("DNS server", &connection.DnsAddr[i]);

    NetCMConnectionClose(connection.ProfileId);
    sem_wait(&answered);
    return (int)NetCMClientDeRegister();
}
