#include "Background.h"

#include <quorvel/NetDNS.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

namespace quorvel::netcm {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Arrival {
    unsigned id;
    Clock::time_point time;
    Answer answer;
};

// From the library's threads to ours.
class Arrivals {
  public:
    void push(Arrival arrival) {
        const std::lock_guard lock(mutex_);
        arrivals_.push_back(std::move(arrival));
        changed_.notify_one();
    }

    std::optional<Arrival> next(Clock::duration time) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, time, [this] { return !arrivals_.empty(); })) {
            return std::nullopt;
        }
        Arrival arrival = std::move(arrivals_.front());
        arrivals_.pop_front();
        return arrival;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Arrival> arrivals_;
};

// Never destroyed: a lookup that was left may still end.
Arrivals& arrivals() {
    static auto* const the_arrivals = new Arrivals;
    return *the_arrivals;
}

void on_answer(hostent* host, unsigned id) {
    Answer answer;
    if (host == nullptr) {
        answer.error = "no DNS server of the profile knows the name, or none answers";
    } else {
        copy_host(answer, *host);
    }
    arrivals().push({id, Clock::now(), std::move(answer)});
}

struct Request {
    std::string name;
    Clock::time_point start;
    std::string source;
};

bool is_cached(const std::string& name) {
    std::vector<std::max_align_t> memory(256);
    hostent* host = nullptr;
    const auto size = static_cast<int>(memory.size() * sizeof(std::max_align_t));
    return get_dns_result_fron_cache(name.c_str(), reinterpret_cast<char*>(memory.data()), size, &host) == 0;
}

class Batch {
  public:
    Batch(int32_t profile, const std::vector<std::string>& names)
        : profile_(profile), waiting_(names.begin(), names.end()) {}

    bool done() const { return waiting_.empty() && under_way_ == 0; }

    // Asks for as many names as the library takes now. A name that it does not take although nothing is under
    // way is one that it never takes: the answer says so.
    std::optional<Answer> ask() {
        while (!waiting_.empty()) {
            const std::string& name = waiting_.front();
            Request request{name, Clock::now(), is_cached(name) ? "cache" : ""};
            unsigned id = 0;
            if (NetDNSGetHostByNameAsync(profile_, name.c_str(), on_answer, &id) == 0) {
                return under_way_ == 0 && ++refusals_ > kPatience ? std::optional(refused()) : std::nullopt;
            }
            // An id is used again as soon as its callback has returned, which may be before its answer is
            // read here; the answers of one id keep their order.
            requests_[id].push_back(std::move(request));
            ++under_way_;
            refusals_ = 0;
            waiting_.pop_front();
        }
        return std::nullopt;
    }

    Answer match(Arrival arrival) {
        std::deque<Request>& requests = requests_.at(arrival.id);
        const Request request = std::move(requests.front());
        requests.pop_front();
        --under_way_;
        arrival.answer.asked = request.name;
        arrival.answer.source = request.source;
        arrival.answer.time = arrival.time - request.start;
        return std::move(arrival.answer);
    }

  private:
    // A worker that has delivered its last answer counts for a moment longer.
    static constexpr int kPatience = 20;

    Answer refused() {
        Answer answer;
        answer.asked = waiting_.front();
        answer.error = "the name is not valid";
        waiting_.pop_front();
        refusals_ = 0;
        return answer;
    }

    int32_t profile_;
    std::deque<std::string> waiting_;
    std::map<unsigned, std::deque<Request>> requests_;
    size_t under_way_ = 0;
    int refusals_ = 0;
};

}  // namespace

void look_up_in_background(int32_t profile, const std::vector<std::string>& names,
                           const std::function<void(const Answer&, Progress)>& answered,
                           const std::function<bool()>& go_on) {
    Batch batch(profile, names);
    size_t done = 0;
    while (!batch.done() && go_on()) {
        std::optional<Answer> answer = batch.ask();
        if (!answer) {
            if (std::optional<Arrival> arrival = arrivals().next(10ms)) {
                answer = batch.match(std::move(*arrival));
            }
        }
        if (answer) {
            answered(*answer, {++done, names.size()});
        }
    }
}

}  // namespace quorvel::netcm
