#include "support/Proc.h"

#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>

namespace quorvel::test {
namespace {

std::string link_of(const std::filesystem::path& link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    return length < 0 ? std::string{} : std::string(target, static_cast<size_t>(length));
}

}  // namespace

Descriptors open_descriptors() {
    Descriptors result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = link_of(entry.path());
        const bool own_listing = target == "/proc/" + std::to_string(getpid()) + "/fd";
        if (!target.empty() && !own_listing)
            result.emplace(std::stoi(entry.path().filename()), target);
    }
    return result;
}

std::set<int32_t> threads() {
    std::set<int32_t> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        result.insert(std::stoi(entry.path().filename()));
    return result;
}

bool sleeps(int32_t tid) {
    std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const size_t name_end = stat.rfind(')');
    return name_end != std::string::npos && stat.compare(name_end, 3, ") S") == 0;
}

}  // namespace quorvel::test
