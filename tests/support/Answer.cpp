#include "support/Answer.h"

namespace quorvel::test {

void Gate::pass() {
    std::unique_lock lock(mutex_);
    waiting_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return open_; });
}

bool Gate::is_somebody_waiting(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return waiting_; });
}

void Gate::open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
}

Answer& Answer::bytes(Bytes some) {
    steps_.emplace_back(Send{std::move(some)});
    return *this;
}

Answer& Answer::in_pieces(Bytes some, size_t size) {
    for (size_t from = 0; from < some.size(); from += size) {
        const auto begin = some.begin() + static_cast<std::ptrdiff_t>(from);
        const auto end = some.begin() + static_cast<std::ptrdiff_t>(std::min(from + size, some.size()));
        bytes(Bytes(begin, end)).after(std::chrono::milliseconds(2));
    }
    return *this;
}

Answer& Answer::push(Bytes some) {
    steps_.emplace_back(Push{std::move(some)});
    return *this;
}

Answer& Answer::after(std::chrono::milliseconds time) {
    steps_.emplace_back(Delay{time});
    return *this;
}

Answer& Answer::wait_at(std::shared_ptr<Gate> gate) {
    steps_.emplace_back(WaitAt{std::move(gate)});
    return *this;
}

Answer& Answer::close() {
    steps_.emplace_back(CloseConnection{});
    return *this;
}

Answer& Answer::close_async() {
    steps_.emplace_back(CloseAsync{});
    return *this;
}

wire::Record answer_record(uint32_t command, uint32_t status) {
    const wire::CommandEntry* entry = wire::find_command(command);
    wire::Record record{};
    record.Code = entry != nullptr ? entry->answer : 0;
    record.Status = status;
    return record;
}

Answer silence() {
    return {};
}

Answer refusal(uint32_t command, uint32_t status, uint32_t reason) {
    wire::Record record = answer_record(command, status);
    record.Word5 = reason;
    return Answer().record(record);
}

Answer hang_up() {
    return Answer().close();
}

Answer cut_short(uint32_t command, size_t bytes) {
    Bytes whole = bytes_of(answer_record(command));
    whole.resize(bytes);
    return Answer().bytes(std::move(whole)).close();
}

Answer wrong_code(uint32_t code) {
    wire::Record record{};
    record.Code = code;
    return Answer().record(record);
}

Answer garbage(size_t bytes) {
    return Answer().bytes(Bytes(bytes, std::byte{0xa5}));
}

}  // namespace quorvel::test
