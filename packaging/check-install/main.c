/* Calls one function of each library that comes along: without a server, registration says that there is
 * none. */
#include <quorvel/NetCM.h>
#include <stdio.h>

static void on_event(NetCMEvent* event) {
    (void)event;
}

int main(void) {
    const uint32_t status = NetCMClientRegister(on_event);
    printf("registration without a server: status %u\n", status);
    return status == 0;
}
