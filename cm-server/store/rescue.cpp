#include "store/rescue.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "log.h"

namespace quorvel::cm {
namespace {

namespace fs = std::filesystem;

std::string good_copy_of(const std::string& path) {
    return path + ".good";
}

std::string dated(const std::string& path) {
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), ".damaged-%Y-%m-%dT%H-%M-%SZ", &parts);
    std::string name = path + text.data();
    for (int i = 2; fs::exists(name); ++i)
        name = path + text.data() + "-" + std::to_string(i);
    return name;
}

// The files of a database belong together.
std::string set_aside(const std::string& path) {
    const std::string aside = dated(path);
    fs::rename(path, aside);
    std::error_code none;
    for (const char* part : {"-wal", "-shm"})
        fs::rename(path + part, aside + part, none);
    return aside;
}

void check(Database& database) {
    Statement statement = database.prepare("PRAGMA quick_check(1)");
    const std::string found = statement.step() ? statement.text(0) : "no answer";
    if (found != "ok")
        throw DamagedDatabase(database.name() + ": " + found);
}

Database open_checked(const std::string& path) {
    Database database(path);
    check(database);
    return database;
}

}  // namespace

Database open_or_rescue(const std::string& path) {
    if (path == kInMemory)
        return Database(path);
    try {
        return open_checked(path);
    } catch (const DamagedDatabase& damage) {
        log::error(damage.what());
    }
    try {
        log::error(path, ": the database is damaged, and is set aside as ", set_aside(path));
    } catch (const fs::filesystem_error& error) {
        throw DatabaseError(path + ": the database is damaged, and cannot be set aside: " + error.what());
    }
    const std::string good = good_copy_of(path);
    std::error_code missing;
    if (fs::copy_file(good, path, missing)) {
        try {
            Database copy = open_checked(path);
            log::error(path, ": the server goes on with the last good copy, ", good);
            return copy;
        } catch (const DamagedDatabase& damage) {
            log::error(good, " is damaged, too: ", damage.what());
            fs::rename(path, dated(good), missing);
        }
    }
    log::error(path, ": the server begins anew, with the factory's profiles");
    return Database(path);
}

void keep_good_copy(Database& database, const std::string& path) {
    if (path == kInMemory)
        return;
    const std::string fresh = good_copy_of(path) + ".new";
    try {
        std::remove(fresh.c_str());
        database.copy_to(fresh);
        if (std::rename(fresh.c_str(), good_copy_of(path).c_str()) != 0)
            throw DatabaseError(std::strerror(errno));
    } catch (const DatabaseError& error) {
        log::warning(good_copy_of(path), ": no good copy can be kept: ", error.what());
    }
}

}  // namespace quorvel::cm
