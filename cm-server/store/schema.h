// The tables of the store, and how an older store becomes a current one.
#pragma once

#include "store/database.h"

namespace quorvel::cm {

// Makes the tables in an empty database. Throws DatabaseError when the store is newer than this server.
// True when the database was empty.
bool bring_up_to_date(Database& database);

}  // namespace quorvel::cm
