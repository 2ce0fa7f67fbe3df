#include "monitor/player.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "protocol/cursor.h"
#include "protocol/pm_message.h"

namespace quorvel::cm {
namespace {

using Clock = std::chrono::steady_clock;

template <class T>
std::vector<std::byte> bytes_of(const T& record) {
    const auto bytes = std::as_bytes(std::span(&record, 1));
    return {bytes.begin(), bytes.end()};
}

std::vector<std::byte> bytes_of(const wire::Record& record, const wire::ConnectionBlock& block) {
    std::vector<std::byte> bytes(sizeof(record) + sizeof(block));
    std::memcpy(bytes.data(), &record, sizeof(record));
    std::memcpy(bytes.data() + sizeof(record), &block, sizeof(block));
    return bytes;
}

// An answer that comes on the async socket, to what the client asked.
bool is_response(const Step& step) {
    switch (step.code) {
        case wire::NETCM_CLIENT_START_RSP:
        case wire::NETCM_CLIENT_STOP_RSP:
        case wire::NETCM_CLIENT_KILL_RSP:
        case wire::NETCM_CLIENT_TUNNEL_RSP:
        case wire::NETCM_CLIENT_PROPER_PROFILE_RSP:
            return true;
        default:
            return step.kind == PassingKind::kAnswer;
    }
}

bool is_answered_by_event(const Request& request) {
    return request.header.Command == wire::NETCM_CLIENT_STOP_REQ ||
           request.header.Command == wire::NETCM_CLIENT_KILL_REQ;
}

}  // namespace

Player::Player(event_base* base, const Play& play, const Life& life, uint32_t id, Connection& sync)
    : play_(play), life_(life), id_(id), sync_(&sync), timer_(base, [this] { give_due(); }) {}

void Player::attach(Connection& async) {
    async_ = &async;
    for (Bytes& bytes : std::exchange(waiting_, {}))
        async.write(std::move(bytes));
}

void Player::register_now() {
    wire::Record answer{};
    if (!Cursor(life_.registration_answer).read(answer))
        answer.Code = wire::NETCM_CLIENT_REGISTER_RSP;
    answer.Word1 = id_;
    sync_->write(bytes_of(answer));
    // What came before it asked anything.
    const auto now = Clock::now();
    for (; next_ < life_.steps.size() && life_.steps[next_].kind != PassingKind::kRequest; ++next_)
        plan(life_.steps[next_], now, life_.begin);
    give_due();
}

size_t Player::find(size_t from, const Bytes& asked) const {
    size_t at = from;
    while (at < life_.steps.size() &&
           (life_.steps[at].kind != PassingKind::kRequest || life_.steps[at].comparable != asked))
        ++at;
    return at;
}

void Player::ask(const Request& request) {
    ++asked_;
    const Bytes asked = comparable(request, play_.lives.with_secrets);
    const size_t found = find(next_, asked);
    // What was told before this was asked comes before it now, too, however early it is asked.
    give_all();
    if (found == life_.steps.size())
        return ask_out_of_turn(request, asked);
    skip_to(found);
    play_.say(life_.name() + ": " + words_of(request));
    take_turn(found);
}

void Player::take_turn(size_t request) {
    has_matched_ = true;
    next_ = request + 1;
    follow(life_, request, false);
    while (next_ < life_.steps.size() && life_.steps[next_].kind != PassingKind::kRequest)
        ++next_;
}

void Player::skip_to(size_t request) {
    for (; next_ < request; ++next_) {
        const Step& step = life_.steps[next_];
        if (step.kind == PassingKind::kRequest)
            play_.otherwise(life_.name() + ": the client leaves out " + words_of(step));
        else if (!is_response(step))
            give(step);
    }
}

void Player::follow(const Life& life, size_t request, bool answers_alone) {
    const auto now = Clock::now();
    for (size_t i = request + 1; i < life.steps.size() && life.steps[i].kind != PassingKind::kRequest; ++i)
        if (!answers_alone || is_response(life.steps[i]))
            plan(life.steps[i], now, life.steps[request].time);
    give_due();
}

void Player::plan(const Step& step, Clock::time_point from, int64_t since) {
    auto time = from;
    if (play_.speed > 0)
        time += std::chrono::microseconds(
            static_cast<int64_t>(static_cast<double>(std::max<int64_t>(step.time - since, 0)) / play_.speed));
    due_.push_back({time, &step});
}

void Player::give_due() {
    while (!due_.empty() && due_.front().time <= Clock::now()) {
        const Step* step = due_.front().step;
        due_.pop_front();
        give(*step);
    }
    if (!due_.empty())
        timer_.start(std::chrono::ceil<std::chrono::milliseconds>(due_.front().time - Clock::now()));
}

void Player::give_all() {
    for (; !due_.empty(); due_.pop_front())
        give(*due_.front().step);
}

void Player::give(const Step& step) {
    if (step.kind == PassingKind::kAnswer)
        sync_->write(step.bytes);
    else
        push(step.bytes);
}

void Player::push(Bytes bytes) {
    if (async_ != nullptr)
        async_->write(std::move(bytes));
    else
        waiting_.push_back(std::move(bytes));
}

// What is asked differently takes the turn of what was asked; anything else is asked beside the record.
void Player::ask_out_of_turn(const Request& request, const Bytes& asked) {
    const bool turn = next_ < life_.steps.size();
    const bool before_the_record = life_.begins_in_the_middle && !has_matched_;
    if (before_the_record) {
        play_.say(life_.name() + ": before the record, " + words_of(request));
    } else {
        play_.otherwise(life_.name() + ": the client asks " + words_of(request));
        play_.say(life_.name() + ": recorded was " +
                  (turn ? words_of(life_.steps[next_]) : "nothing more of this client"));
    }
    if (turn && !before_the_record && life_.steps[next_].code == request.header.Command)
        return take_turn(next_);
    if (!serve_from_elsewhere(asked) && !serve_earlier_call(request))
        refuse(request);
}

bool Player::serve_from_elsewhere(const Bytes& asked) {
    for (const Life& life : play_.lives.all)
        for (size_t i = 0; i < life.steps.size(); ++i)
            if (life.steps[i].kind == PassingKind::kRequest && life.steps[i].comparable == asked) {
                follow(life, i, true);
                return true;
            }
    return false;
}

// A client that was there before the record had opened what it uses.
bool Player::serve_earlier_call(const Request& request) {
    const auto profile = static_cast<int32_t>(request.header.Arg4);
    const auto& calls = play_.lives.earlier_calls;
    const auto found = std::ranges::find(calls, profile, &EarlierCall::profile);
    if (request.header.Command != wire::NETCM_CLIENT_START_REQ || found == calls.end())
        return false;
    Message answer = make_message(wire::NETCM_CLIENT_START_RSP);
    answer.record.Word2 = request.header.Arg4;
    answer.record.CallId = found->call;
    sync_->write(bytes_of(answer.record));
    Addresses addresses;
    addresses.interface = found->interface;
    inet_pton(AF_INET, found->address.c_str(), &addresses.address);
    push(bytes_of(answer.record, to_wire(addresses)));
    return true;
}

void Player::refuse(const Request& request) {
    const wire::CommandEntry* command = wire::find_command(request.header.Command);
    wire::Record record{};
    record.Code = command->answer;
    record.Word2 = request.header.Arg4;
    record.Status = NETCM_ERR_FAILURE;
    if (request.header.Command == wire::NETPM_PROFILE_REQ) {
        uint32_t of_pm = 0;
        (void)Cursor(request.payload).read(of_pm);
        record = to_message(PmAnswer{-1, PM_ERR_UNKNOWN_COMMAND, 0, {}}, of_pm).record;
    } else if (request.header.Command == wire::NETPM_APPPROF_REQ) {
        wire::AppProfMsg message{};
        (void)Cursor(request.payload).read(message);
        message.Cmd += wire::kPmAnswer;
        message.Result = PM_ERR_UNKNOWN_COMMAND;
        record = to_message(message).record;
    }
    if (is_answered_by_event(request))
        push(bytes_of(record));
    else
        sync_->write(bytes_of(record));
}

void Player::leave() {
    timer_.stop();
    due_.clear();
    const auto is_request = [](const Step& step) { return step.kind == PassingKind::kRequest; };
    const auto rest = life_.steps.begin() + static_cast<ptrdiff_t>(std::min(next_, life_.steps.size()));
    const auto left = std::count_if(rest, life_.steps.end(), is_request);
    if (left > 0)
        play_.otherwise(life_.name() + ": the client goes and leaves out " + std::to_string(left) +
                        " requests, from " + words_of(*std::find_if(rest, life_.steps.end(), is_request)) +
                        " on");
}

}  // namespace quorvel::cm
