// One server for a database.
#pragma once

#include <string>

namespace quorvel::cm {

// Held for the life of the object, and gone with the process, however that ends. The file that is locked lies
// beside the database, which may be replaced. A database in memory needs none.
class StoreLock {
  public:
    // Throws DatabaseError when another server has it.
    explicit StoreLock(const std::string& database);
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

  private:
    int fd_ = -1;
};

}  // namespace quorvel::cm
