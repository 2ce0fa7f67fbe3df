// netcm top
#include <quorvel/NetCM.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <sstream>
#include <string_view>

#include "../Command.h"
#include "../Lists.h"
#include "../ServerWords.h"
#include "../Status.h"
#include "../TimeLimit.h"
#include "../Units.h"
#include "command-line/Duration.h"
#include "command-line/UtcTime.h"

namespace quorvel::netcm {
namespace {

using Clock = std::chrono::steady_clock;

struct TopOptions {
    StayOption stay;
    double interval = 1;

    void define(CLI::App& command) {
        stay.define(command);
        command.add_option("--interval", interval, "How often to look (1s)")
            ->type_name("TIME")
            ->transform(command_line::duration())
            ->check([](const std::string& seconds) {
                return std::strtod(seconds.c_str(), nullptr) > 0 ? ""
                                                                 : "there has to be a time between two looks";
            });
    }
};

// What is there at one moment.
struct Sample {
    Clock::time_point time;
    std::array<uint32_t, kCounterNames.size()> counters{};
    Json connections = Json::array();
};

Sample look() {
    Sample sample;
    sample.connections = active_connections(NETCM_IFACE_PDP);
    for (const Json& connection : active_connections(NETCM_IFACE_WIFI)) {
        sample.connections.push_back(connection);
    }
    require_success(NetCMGetStatInfo(sample.counters.data()), "cannot read the statistics");
    sample.time = Clock::now();
    return sample;
}

// Of each counter, for a second. The counters have 32 bits and begin again.
using Rates = std::array<double, kCounterNames.size()>;
Rates rates_between(const Sample& before, const Sample& now) {
    Rates rates{};
    const double seconds = std::chrono::duration<double>(now.time - before.time).count();
    for (size_t i = 0; i < rates.size(); ++i) {
        rates[i] = seconds > 0 ? (now.counters[i] - before.counters[i]) / seconds : 0;
    }
    return rates;
}

// What somebody sees: a screen that is drawn anew, or lines.
class View {
  public:
    virtual ~View() = default;
    virtual void show(const Sample& sample, const Rates& rates) = 0;
    virtual void tell(const Json& event) = 0;
};

Json own_event(const char* name) {
    return {{"time", command_line::utc_time(std::chrono::system_clock::now())}, {"event", name}};
}

// A line for each look and each event; what a connection is, when it comes, changes and goes.
class Lines : public View {
  public:
    explicit Lines(const CommonOptions& common) : printer_(common.printer()), json_(common.json) {}

    void show(const Sample& sample, const Rates& rates) override {
        json_ ? print_numbers(sample, rates) : print_words(sample, rates);
    }
    void tell(const Json& event) override { printer_.event(event); }

  private:
    void print_numbers(const Sample& sample, const Rates& rates) {
        Json line = own_event("look");
        line["connections"] = sample.connections;
        for (size_t i = 0; i < rates.size(); ++i) {
            line[std::string(kCounterNames[i]) + "_per_second"] = rates[i];
        }
        printer_.event(line);
    }

    void print_words(const Sample& sample, const Rates& rates) {
        print_changes("connection", sample.connections, known_);
        print_changes("connection_gone", known_, sample.connections);
        known_ = sample.connections;
        Json line = own_event("look");
        line["connections"] = sample.connections.size();
        line["received"] = rate_text(rates[0]);
        line["sent"] = rate_text(rates[1]);
        line["errors"] = count_text(rates[4] + rates[5]);
        printer_.event(line);
    }

    // Those of the first list that the second has not. One that has changed is no connection that has gone.
    void print_changes(const char* name, const Json& list, const Json& others) {
        const bool whole = std::string_view(name) == "connection";
        for (const Json& connection : list) {
            const auto is_same = [&](const Json& other) {
                return whole ? other == connection : other["profile_id"] == connection["profile_id"];
            };
            if (std::ranges::none_of(others, is_same)) {
                Json line = own_event(name);
                line.update(connection);
                printer_.event(line);
            }
        }
    }

    Printer printer_;
    bool json_;
    Json known_ = Json::array();
};

class Screen : public View {
  public:
    void show(const Sample& sample, const Rates& rates) override {
        std::ostringstream text;
        Printer printer(text, Format::kText);
        text << "netcm top  " << command_line::utc_time(std::chrono::system_clock::now()) << "  received "
             << rate_text(rates[0]) << "  sent " << rate_text(rates[1]) << "  errors "
             << count_text(rates[4] + rates[5]) << "\n\n";
        printer.result(sample.connections);
        above_ = text.str();
        draw();
    }

    void tell(const Json& event) override {
        constexpr size_t kMost = 12;
        std::ostringstream text;
        Printer(text, Format::kText).event(event);
        events_.push_back(text.str());
        if (events_.size() > kMost) {
            events_.pop_front();
        }
        draw();
    }

  private:
    void draw() const {
        constexpr std::string_view kHomeAndClear = "\033[H\033[2J";
        std::cout << kHomeAndClear << above_ << "\n";
        for (const std::string& event : events_) {
            std::cout << event;
        }
        std::cout << std::flush;
    }

    std::string above_;
    std::deque<std::string> events_;
};

bool has_screen() {
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::unique_ptr<View> view_for(const CommonOptions& common) {
    if (!common.json && has_screen()) {
        return std::make_unique<Screen>();
    }
    return std::make_unique<Lines>(common);
}

// Looks once more; the server may be away for a while.
void look_again(std::optional<Sample>& before, View& view) {
    try {
        Sample now = look();
        view.show(now, rates_between(before.value_or(now), now));
        before = std::move(now);
    } catch (const Failure& failure) {
        Json line = own_event("no_answer");
        line["meaning"] = failure.what();
        view.tell(line);
        before.reset();
    }
}

void run_top(const CommonOptions& common, const TopOptions& options) {
    const std::unique_ptr<View> view = view_for(common);
    Session session;
    stop_time_limit();
    const Deadline end = options.stay.deadline();
    std::optional<Sample> before;
    while (!session.interrupted()) {
        look_again(before, *view);
        if (has_passed(end)) {
            break;
        }
        const Deadline next = in(std::chrono::duration<double>(options.interval));
        session.follow(end ? std::min(next, end) : next,
                       [&](const Event& event) { view->tell(to_json(event)); });
    }
    session.end(forget);
}

}  // namespace

void add_top_command(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "top", "Show connections, rates and events as they come", run_top)
        ->footer(
            "On a terminal a screen that is drawn anew at every look; elsewhere, and with --json, a line "
            "for\n"
            "each look and each event.");
}

}  // namespace quorvel::netcm
