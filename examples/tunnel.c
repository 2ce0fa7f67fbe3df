/* Sends a text to the CM server through the tunnel and prints the answer: example-tunnel TEXT */
#include <quorvel/NetCM.h>
#include <semaphore.h>
#include <stdio.h>
#include <string.h>

static sem_t answered;

static void on_event(NetCMEvent *event) { /* the data live only during the call */
    if (event->EventType == NETCM_EVENT_TUNNEL_RSP) {
        const NetCMTunnelData *answer = event->Data;
        printf("request %u: %.*s\n", answer->RequestId, (int)answer->DataLength, (const char *)answer->Data);
        sem_post(&answered);
    }
}

int main(int argc, char **argv) {
    if (argc != 2)
        return fprintf(stderr, "usage: %s TEXT\n", argv[0]), 2;
    sem_init(&answered, 0, 0);
    uint32_t status = NetCMClientRegister(on_event);
    if (status != NETCM_SUCCESS)
        return fprintf(stderr, "not registered: status %u\n", status), 1;
    NetCMTunnelData request = {.DataLength = (uint32_t)strlen(argv[1]), .Data = argv[1]};
    status = NetCMTunnelRequest(&request);
    if (status == NETCM_SUCCESS)
        sem_wait(&answered);
    else
        fprintf(stderr, "not sent: status %u\n", status);
    NetCMClientDeRegister();
    return status == NETCM_SUCCESS ? 0 : 1;
}
