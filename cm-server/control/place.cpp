#include "control/place.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "socket_path.h"

namespace quorvel::cm {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOfTheSystem = "/run/quorvel";

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string in_folder(const fs::path& folder, const std::string& socket) {
    std::string name = fs::absolute(socket).lexically_normal().string().substr(1);
    std::ranges::replace(name, '/', '-');
    return folder / (name + ".control");
}

std::string beside(const std::string& socket) {
    return socket + ".control";
}

fs::path folder_of(const std::string& socket) {
    const fs::path folder = fs::path(socket).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

// Nobody but this user, and root, can make or remove anything there.
bool is_private(const fs::path& folder, uid_t user) {
    struct stat found {};
    return lstat(folder.c_str(), &found) == 0 && S_ISDIR(found.st_mode) &&
           (found.st_uid == user || found.st_uid == 0) && (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Where this user can make something, too.
bool is_usable(const fs::path& folder) {
    std::error_code failed;
    fs::create_directories(folder.parent_path(), failed);
    // Others may look for the socket, which lets them in or not.
    mkdir(folder.c_str(), 0755);
    return is_private(folder, geteuid()) && access(folder.c_str(), W_OK | X_OK) == 0;
}

std::string first_of(const std::string& list) {
    return list.substr(0, list.find(':'));
}

// The folders of a user's own, when the environment does not say otherwise.
std::vector<fs::path> folders_of(uid_t user) {
    std::vector<fs::path> folders{fs::path("/run/user") / std::to_string(user) / "quorvel"};
    if (const passwd* entry = getpwuid(user); entry != nullptr)
        folders.push_back(fs::path(entry->pw_dir) / ".local/state/quorvel");
    return folders;
}

std::vector<fs::path> folders() {
    std::vector<fs::path> result;
    if (const std::string given = first_of(variable("RUNTIME_DIRECTORY")); !given.empty())
        result.emplace_back(given);
    result.emplace_back(kOfTheSystem);
    if (const std::string given = variable("XDG_RUNTIME_DIR"); !given.empty())
        result.push_back(fs::path(given) / "quorvel");
    if (const std::string given = variable("XDG_STATE_HOME"); !given.empty())
        result.push_back(fs::path(given) / "quorvel");
    if (const std::string given = variable("HOME"); !given.empty())
        result.push_back(fs::path(given) / ".local/state/quorvel");
    return result;
}

}  // namespace

std::string control_path_to_serve(const std::string& socket) {
    if (is_private(folder_of(socket), geteuid()))
        return beside(socket);
    for (const fs::path& folder : folders())
        if (is_usable(folder))
            return in_folder(folder, socket);
    throw SocketPathError(
        "there is no folder of this user's own for the operator's socket; name one with RUNTIME_DIRECTORY");
}

int connect_to_control(const std::string& socket, std::vector<std::string>& tried) {
    struct stat found {};
    const uid_t server = lstat(socket.c_str(), &found) == 0 ? found.st_uid : geteuid();
    std::vector<std::string> paths;
    if (is_private(folder_of(socket), server))
        paths.push_back(beside(socket));
    std::vector<fs::path> candidates = folders();
    for (const fs::path& folder : folders_of(server))
        candidates.push_back(folder);
    for (const fs::path& folder : candidates)
        if (is_private(folder, server))
            paths.push_back(in_folder(folder, socket));
    int error = ENOENT;
    for (const std::string& path : paths) {
        const int fd = connect_to(path);
        if (fd >= 0)
            return fd;
        // The first that says more than that there is nothing.
        error = error == ENOENT ? errno : error;
    }
    tried = paths;
    errno = error;
    return -1;
}

}  // namespace quorvel::cm
