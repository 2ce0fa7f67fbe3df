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
    std::string aside = dated(path);
    fs::rename(path, aside);
    std::error_code none;
    for (const char* part : {"-wal", "-shm"})
        fs::rename(path + part, aside + part, none);
    return aside;
}

Database open_checked(const std::string& path) {
    Database database(path);
    database.check();
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

void make_good_copy(const std::string& path) {
    const std::string good = good_copy_of(path);
    const std::string fresh = good + ".new";
    copy_database(path, fresh);
    // What is damaged is damaged in its copy, too.
    check_database(fresh);
    if (std::rename(fresh.c_str(), good.c_str()) != 0)
        throw DatabaseError(good + ": " + std::strerror(errno));
}

void keep_good_copy(const std::string& path) {
    if (path == kInMemory)
        return;
    try {
        make_good_copy(path);
    } catch (const DatabaseError& error) {
        log::warning(good_copy_of(path), ": no good copy can be kept: ", error.what());
    }
}

}  // namespace quorvel::cm
