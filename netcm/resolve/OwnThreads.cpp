#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include "Background.h"
#include "Inbox.h"

namespace quorvel::netcm {
namespace {

constexpr size_t kMostThreads = 10;

// Shared by the threads, which are left behind when the program is interrupted.
struct Work {
    NameServers servers;
    std::vector<std::string> names;
    std::atomic<size_t> next{0};
};

void run(const std::shared_ptr<Work>& work) {
    for (size_t index = work->next++; index < work->names.size(); index = work->next++) {
        inbox().push(look_up(work->servers, work->names[index]));
    }
}

}  // namespace

void look_up_on_own_threads(const NameServers& servers, const std::vector<std::string>& names,
                            const OnAnswer& answered) {
    const auto work = std::make_shared<Work>();
    work->servers = servers;
    work->names = names;
    for (size_t count = std::min(names.size(), kMostThreads); count > 0; --count) {
        std::thread(run, work).detach();
    }
    for (size_t done = 1; done <= names.size(); ++done) {
        const std::optional<Message> message = inbox().next(std::nullopt);
        if (!message) {
            return;
        }
        answered(std::get<Answer>(*message), {done, names.size()});
    }
}

}  // namespace quorvel::netcm
