// Where the operator's socket is: in a folder where only the server's user can make something, so that nobody
// else can be there first.
#pragma once

#include <string>
#include <vector>

namespace quorvel::cm {

// For the server: beside its socket where that folder is its user's own, or else in the first of these that
// is: $RUNTIME_DIRECTORY, /run/quorvel, $XDG_RUNTIME_DIR/quorvel, and the folder of the user's state. One
// that is missing is made. Throws SocketPathError when there is none.
std::string control_path_to_serve(const std::string& socket);

// For an operator: connects to the server that serves on `socket`, wherever its user has put the operator's
// socket. -1 with errno, and all the places that have been tried.
int connect_to_control(const std::string& socket, std::vector<std::string>& tried);

}  // namespace quorvel::cm
