#include <dbus/dbus.h>

#include "run.h"

static int set_up(void) {
    DBusConnection* connection = dbus_connection_open("unix:path=/tmp/bench-bus", NULL);
    return connection != NULL && dbus_bus_register(connection, NULL);
}

int main(int argc, char** argv) {
    return run(argc > 1 ? argv[1] : "", set_up);
}
