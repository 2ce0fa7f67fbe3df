// SQLite, owned: a database, its statements and transactions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "events.h"

namespace quorvel::cm {

inline constexpr const char* kInMemory = ":memory:";

// The database cannot do what is asked; what() names its file, and is its own message.
class DatabaseError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
// The file is no database, or is damaged.
class DamagedDatabase : public DatabaseError {
    using DatabaseError::DatabaseError;
};

// A prepared statement. Values are bound from left to right.
class Statement {
  public:
    Statement(sqlite3* database, const std::string& sql);

    Statement& bind(int64_t value);
    Statement& bind(std::string_view text);
    Statement& bind(std::span<const std::byte> bytes);
    Statement& bind_null();

    // The next row, or false when there is none.
    bool step();
    // For statements that give no rows.
    void run() {
        while (step()) {
        }
    }

    int columns() const { return sqlite3_column_count(statement_.get()); }
    int64_t number(int column);
    std::string text(int column);
    std::span<const std::byte> bytes(int column);

  private:
    void check(int result) const;

    std::unique_ptr<sqlite3_stmt, Freed<sqlite3_finalize>> statement_;
    int bound_ = 0;
};

class Database {
  public:
    // A file that does not exist is made, readable by its owner alone. ":memory:" keeps everything in memory.
    explicit Database(const std::string& path);

    // What is asked from here on fails at once when another process has locked the file: nobody waits for it
    // who has nothing to do with it.
    void wait_no_more() { run("PRAGMA busy_timeout = 0"); }
    // The file, or ":memory:".
    std::string name() const;
    // Runs the action whenever something is about to be committed. It must not use the database, nor throw.
    void when_committed(std::function<void()> action);
    // Throws DamagedDatabase when not all of it can be read.
    void check();
    void run(const std::string& sql);
    Statement prepare(const std::string& sql);
    int32_t last_inserted() const;
    int changed() const { return sqlite3_changes(database_.get()); }

  private:
    friend class Transaction;
    void begin();
    void undo_what_was_left();

    // At a place of its own, which SQLite knows: a database may move.
    std::unique_ptr<std::function<void()>> committed_;
    std::unique_ptr<sqlite3, Freed<sqlite3_close>> database_;
    bool in_transaction_ = false;
};

// Writes all that is in the database of one file to another, which is its owner's alone. Over connections of
// its own: another thread may use the database meanwhile. Throws DatabaseError.
void copy_database(const std::string& from, const std::string& to);
// Throws DamagedDatabase when not all of it can be read.
void check_database(const std::string& path);

// All or nothing: what is not committed is undone.
class Transaction {
  public:
    explicit Transaction(Database& database) : database_(database) { database_.begin(); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

  private:
    Database& database_;
    bool open_ = true;
};

}  // namespace quorvel::cm
