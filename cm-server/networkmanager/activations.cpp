#include "networkmanager/activations.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "log.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

}  // namespace

std::set<std::string> Activations::begin(const std::string& manager) {
    if (there_ && manager == manager_)
        return {};
    if (manager != manager_)
        active_ = read(manager);
    there_ = true;
    manager_ = manager;
    if (active_.empty())
        write();
    // They are ours until they have been let go of.
    return active_;
}

void Activations::add(const std::string& active) {
    if (there_ && active_.insert(active).second)
        write();
}

void Activations::remove(const std::string& active) {
    if (active_.erase(active) > 0)
        write();
}

std::set<std::string> Activations::read(const std::string& manager) const {
    std::ifstream file(file_);
    const json noted = json::parse(file, nullptr, false);
    // Of another NetworkManager, or cut off.
    if (!noted.is_object() || !noted.contains("active") || !noted.contains("manager") ||
        noted.at("manager") != manager)
        return {};
    std::set<std::string> active;
    for (const json& path : noted.at("active"))
        if (path.is_string())
            active.insert(path.get<std::string>());
    return active;
}

// A server that is killed leaves the old file or the new one. A loss of power ends NetworkManager, too.
void Activations::write() const {
    if (file_.empty())
        return;
    std::error_code error;
    if (active_.empty()) {
        std::filesystem::remove(file_, error);
        return;
    }
    const std::string next = file_ + ".new";
    std::ofstream file(next);
    file << json{{"manager", manager_}, {"active", active_}};
    file.close();
    if (file)
        std::filesystem::rename(next, file_, error);
    if (!file || error)
        log::warning(file_, " cannot be written: a server that comes after a kill will not take down what ",
                     "NetworkManager has activated for this one");
}

}  // namespace quorvel::cm
