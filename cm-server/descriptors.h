// How many descriptors the process may have, and whom there is room for with them.
#pragma once

#include <cstddef>

namespace quorvel::cm {

struct Room {
    size_t connections;
    size_t clients;  // registered at a time
};

// Raises the limit as far as the process may, and says in the log when that is too little for so many
// clients.
Room make_room(size_t clients);

}  // namespace quorvel::cm
