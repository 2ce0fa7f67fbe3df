#include "store/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "guard.h"

namespace quorvel::cm {
namespace {

std::string name_of(sqlite3* database) {
    const char* file = sqlite3_db_filename(database, "main");
    return file == nullptr || file[0] == '\0' ? kInMemory : file;
}

[[noreturn]] void fail(sqlite3* database) {
    const std::string what = name_of(database) + ": " + sqlite3_errmsg(database);
    const int error = sqlite3_errcode(database) & 0xff;
    if (error == SQLITE_CORRUPT || error == SQLITE_NOTADB)
        throw DamagedDatabase(what);
    throw DatabaseError(what);
}

using Handle = std::unique_ptr<sqlite3, Freed<sqlite3_close>>;

// A file that is there. Unlike the server's own database it is opened without a change of the process's
// umask, which other threads share.
Handle open_file(const std::string& path) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    Handle handle(opened);
    if (result != SQLITE_OK)
        throw DatabaseError(path + ": " + (opened != nullptr ? sqlite3_errmsg(opened) : "out of memory"));
    return handle;
}

void check_whole(sqlite3* database) {
    Statement statement(database, "PRAGMA quick_check(1)");
    const std::string found = statement.step() ? statement.text(0) : "no answer";
    if (found != "ok")
        throw DamagedDatabase(name_of(database) + ": " + found);
}

// Profiles hold passwords.
void make_private(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        throw DatabaseError(path + ": " + std::strerror(errno));
    close(fd);
}

}  // namespace

Statement::Statement(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
        fail(database);
    statement_.reset(prepared);
}

void Statement::check(int result) const {
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE)
        fail(sqlite3_db_handle(statement_.get()));
}

Statement& Statement::bind(int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), ++bound_, value));
    return *this;
}

Statement& Statement::bind(std::string_view text) {
    check(sqlite3_bind_text(statement_.get(), ++bound_, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bind(std::span<const std::byte> bytes) {
    check(sqlite3_bind_blob(statement_.get(), ++bound_, bytes.data(), static_cast<int>(bytes.size()),
                            SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bind_null() {
    check(sqlite3_bind_null(statement_.get(), ++bound_));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    check(result);
    return result == SQLITE_ROW;
}

int64_t Statement::number(int column) {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) {
    const auto found = bytes(column);
    return {reinterpret_cast<const char*>(found.data()), found.size()};
}

std::span<const std::byte> Statement::bytes(int column) {
    const void* data = sqlite3_column_blob(statement_.get(), column);
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return {static_cast<const std::byte*>(data), static_cast<size_t>(size)};
}

Database::Database(const std::string& path) {
    sqlite3* opened = nullptr;
    // Profiles hold passwords.
    const mode_t before = umask(077);
    const int result = sqlite3_open(path.c_str(), &opened);
    if (result == SQLITE_OK)
        sqlite3_exec(opened, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    umask(before);
    database_.reset(opened);
    if (result != SQLITE_OK)
        throw DatabaseError(path + ": " + sqlite3_errmsg(opened));
    run("PRAGMA busy_timeout = 2000");
    // What a client has been told is done survives a loss of power, too.
    run("PRAGMA synchronous = FULL");
    run("PRAGMA foreign_keys = ON");
}

void Database::check() {
    check_whole(database_.get());
}

void Database::run(const std::string& sql) {
    if (sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(database_.get());
}

Statement Database::prepare(const std::string& sql) {
    undo_what_was_left();
    return {database_.get(), sql};
}

void Database::begin() {
    undo_what_was_left();
    run("BEGIN IMMEDIATE");
    in_transaction_ = true;
}

// An undoing may have failed for want of memory. Nothing is done on top of what it has left: it would be
// undone with it, or never be written.
void Database::undo_what_was_left() {
    if (!in_transaction_ && sqlite3_get_autocommit(database_.get()) == 0)
        run("ROLLBACK");
}

std::string Database::name() const {
    return name_of(database_.get());
}

void Database::when_committed(std::function<void()> action) {
    committed_ = std::make_unique<std::function<void()>>(std::move(action));
    const auto call = [](void* context) {
        (*static_cast<std::function<void()>*>(context))();
        constexpr int kGoOn = 0;
        return kGoOn;
    };
    sqlite3_commit_hook(database_.get(), call, committed_.get());
}

int32_t Database::last_inserted() const {
    return static_cast<int32_t>(sqlite3_last_insert_rowid(database_.get()));
}

Transaction::~Transaction() {
    database_.in_transaction_ = false;
    if (open_)
        guarded("the undoing of an unfinished change in the store", [this] { database_.run("ROLLBACK"); });
}

void copy_database(const std::string& from, const std::string& to) {
    make_private(to);
    const Handle source = open_file(from);
    const Handle copy = open_file(to);
    constexpr int kEverything = -1;
    constexpr int kPatienceMs = 2000;
    sqlite3_busy_timeout(source.get(), kPatienceMs);
    sqlite3_backup* backup = sqlite3_backup_init(copy.get(), "main", source.get(), "main");
    if (backup != nullptr)
        sqlite3_backup_step(backup, kEverything);
    if (backup == nullptr || sqlite3_backup_finish(backup) != SQLITE_OK)
        fail(copy.get());
}

void check_database(const std::string& path) {
    const Handle file = open_file(path);
    check_whole(file.get());
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

}  // namespace quorvel::cm
