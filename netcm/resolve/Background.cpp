#include "Background.h"

#include <quorvel/NetCM.h>
#include <quorvel/NetDNS.h>

#include <deque>
#include <map>
#include <optional>

#include "Inbox.h"
#include "Names.h"

namespace quorvel::netcm {
namespace {

using Clock = std::chrono::steady_clock;

// The library's limit, of requests and of workers.
constexpr size_t kMostRequests = 10;

constexpr char kConnectionEnded[] = "the connection has ended";

// A request keeps its place among the library's until its worker has ended, a little after the callback. Only
// the end of the thread tells when that is.
struct WorkerEnd {
    size_t ids = 0;
    ~WorkerEnd() { inbox().push(Released{ids}); }
};

void on_answer(hostent* host, unsigned id) {
    thread_local WorkerEnd end;
    ++end.ids;
    Answer answer;
    if (host == nullptr) {
        answer.error = "no DNS server of the profile knows the name, or none answers";
    } else {
        copy_host(answer, *host);
    }
    inbox().push(Delivery{id, Clock::now(), std::move(answer)});
}

bool is_cached(const std::string& name) {
    std::vector<std::max_align_t> memory(256);
    hostent* host = nullptr;
    const auto size = static_cast<int>(memory.size() * sizeof(std::max_align_t));
    return get_dns_result_fron_cache(name.c_str(), reinterpret_cast<char*>(memory.data()), size, &host) == 0;
}

// Of two servers the library does not tell which has answered.
std::string either_of(const std::vector<std::string>& servers) {
    std::string text;
    for (const std::string& server : servers) {
        if (server != text) {
            text += (text.empty() ? "" : " or ") + server;
        }
    }
    return text;
}

struct Request {
    std::string name;
    Clock::time_point start;
    std::string source;
};

class Batch {
  public:
    Batch(int32_t profile, const NameServers& servers, const std::vector<std::string>& names)
        : profile_(profile), servers_(either_of(servers.addresses)), waiting_(names.begin(), names.end()) {}

    bool done() const { return waiting_.empty() && unanswered_ == 0; }

    // Asks for as many names as the library takes now. The answer is that of a name for which it can do
    // nothing; without one there is a message to wait for, or all is done.
    std::optional<Answer> ask() {
        while (!waiting_.empty() && held_ < kMostRequests) {
            Request request{waiting_.front(), Clock::now(), source_of(waiting_.front())};
            unsigned id = 0;
            if (NetDNSGetHostByNameAsync(profile_, request.name.c_str(), on_answer, &id) == 0) {
                return refused();
            }
            // An id is used again as soon as its callback has returned, which may be before its answer is
            // read here; the answers of one id keep their order.
            requests_[id].push_back(std::move(request));
            ++unanswered_;
            ++held_;
            waiting_.pop_front();
        }
        return std::nullopt;
    }

    std::optional<Answer> take(Message message) {
        if (const auto* released = std::get_if<Released>(&message)) {
            held_ -= released->ids;
            return std::nullopt;
        }
        return match(std::get<Delivery>(std::move(message)));
    }

  private:
    bool is_connected() const {
        NetCMConnInfo info{};
        return NetCMDeviceGetInfo(profile_, &info) == NETCM_SUCCESS;
    }

    std::string source_of(const std::string& name) const {
        return needs_no_server(name) ? kLocalSource : is_cached(name) ? kCacheSource : servers_;
    }

    // The name is valid and the library has room: it is the connection, or it has run out of something. It is
    // not asked again, since it may keep a name for which it had no memory, and then answers it never.
    Answer refused() {
        Answer answer;
        answer.asked = waiting_.front();
        answer.error = is_connected() ? "there is no memory or no thread for the lookup" : kConnectionEnded;
        waiting_.pop_front();
        return answer;
    }

    Answer match(Delivery delivery) {
        std::deque<Request>& requests = requests_.at(delivery.id);
        const Request request = std::move(requests.front());
        requests.pop_front();
        --unanswered_;
        Answer& answer = delivery.answer;
        answer.asked = request.name;
        answer.source = request.source;
        answer.time = delivery.time - request.start;
        if (!answer.error.empty() && !is_connected()) {
            answer.error = kConnectionEnded;
        }
        return std::move(answer);
    }

    int32_t profile_;
    std::string servers_;
    std::deque<std::string> waiting_;
    std::map<unsigned, std::deque<Request>> requests_;
    size_t unanswered_ = 0;
    size_t held_ = 0;  // requests that the library still counts
};

}  // namespace

void look_up_in_background(int32_t profile, const NameServers& servers, const std::vector<std::string>& names,
                           const OnAnswer& answered) {
    Batch batch(profile, servers, names);
    size_t done = 0;
    while (!batch.done()) {
        std::optional<Answer> answer = batch.ask();
        if (!answer) {
            std::optional<Message> message = inbox().next(std::nullopt);
            if (!message) {
                return;
            }
            answer = batch.take(std::move(*message));
        }
        if (answer) {
            answered(*answer, {++done, names.size()});
        }
    }
}

}  // namespace quorvel::netcm
