// Where the store is when nobody says where.
#include <cstdlib>
#include <filesystem>

#include "store/store.h"

namespace quorvel::cm {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::filesystem::path state_directory() {
    // systemd has made this one for us.
    if (const std::string given = variable("STATE_DIRECTORY"); !given.empty())
        return given;
    if (const std::string base = variable("XDG_STATE_HOME"); !base.empty())
        return std::filesystem::path(base) / "quorvel";
    if (const std::string home = variable("HOME"); !home.empty())
        return std::filesystem::path(home) / ".local" / "state" / "quorvel";
    return "/var/lib/quorvel";
}

}  // namespace

std::string default_store_path() {
    const std::filesystem::path directory = state_directory();
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        throw DatabaseError("cannot make " + directory.string() + ": " + error.message() +
                            "; name a file with --db");
    return directory / "cm-server.db";
}

}  // namespace quorvel::cm
