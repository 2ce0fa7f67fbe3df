// Sockets to the server.
#pragma once

namespace quorvel {

// A stream socket of the kind the server speaks, or -1 with errno set.
int create_socket();

bool connect_to_server(int fd);

// The server cannot be reached: tells the platform, closes the socket and pauses for a second.
void give_up_connecting(int fd);

}  // namespace quorvel
