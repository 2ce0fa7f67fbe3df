// What the tests do to the interfaces of their network.
#pragma once

#include <cstddef>

namespace quorvel::test {

// Datagrams over the loopback interface, one after another, to a socket that takes them: nothing else is
// counted for them, at once or later.
void send_over_loopback(size_t size, int count = 1);

// Whether the interface is up and has a carrier.
bool is_running(const char* interface);

}  // namespace quorvel::test
