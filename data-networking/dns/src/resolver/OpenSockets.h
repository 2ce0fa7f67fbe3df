// The sockets of the lookups that are under way, for the child of a fork to close.
#pragma once

namespace quorvel {

// From the socket's opening to right before its closing. A socket that is not noted for the moment between is
// one that a child keeps; one noted too long would be somebody else's that a child closes.
void note_socket(int fd);
void forget_socket(int fd);

void close_sockets_in_child();

}  // namespace quorvel
