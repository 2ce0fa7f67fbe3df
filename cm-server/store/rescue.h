// A database that is damaged, and the copy that is not.
#pragma once

#include <string>

#include "store/database.h"

namespace quorvel::cm {

// Opens it. A damaged one is set aside under a name with the date, which the log says as an error, and what
// is opened is a copy of the last good state, or a new database where there is none. Throws DatabaseError.
Database open_or_rescue(const std::string& path);

// Keeps the state of now as the good copy, FILE.good: a whole one, checked before it takes the place of the
// older. From any thread. Throws DatabaseError.
void make_good_copy(const std::string& path);
// The same, and the log says when it fails. A store in memory has none.
void keep_good_copy(const std::string& path);

}  // namespace quorvel::cm
