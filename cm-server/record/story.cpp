#include "record/story.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <optional>

#include "monitor/decode.h"
#include "protocol/cursor.h"
#include "protocol/pm_errors.h"
#include "protocol/status.h"
#include "record/lives.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

// So many rows a browser still searches at once; what is left out is unremarkable.
constexpr size_t kMostRows = 60'000;
constexpr int64_t kSlow = 1'000'000;  // microseconds

wire::Record record_in(const Kept& kept) {
    wire::Record record{};
    std::memcpy(static_cast<void*>(&record), kept.bytes.data(), std::min(kept.bytes.size(), sizeof(record)));
    return record;
}

// Why an answer or event tells of a failure; empty when it does not.
std::string failure_of(const wire::Record& record, bool event) {
    if (record.Code == wire::NETPM_PROFILE_RSP) {
        const PmErrorEntry* error = find_pm_error(record.CallId);
        if (record.CallId == 0)
            return {};
        return error != nullptr ? std::string(error->name) + ": " + error->text
                                : "error " + std::to_string(record.CallId);
    }
    if (record.Code == wire::NETCM_CLIENT_PROPER_PROFILE_RSP && !event) {
        // The third of its words is the error.
        const PmErrorEntry* error = find_pm_error(record.CallId);
        return error != nullptr ? std::string(error->name) + ": " + error->text : std::string();
    }
    if (record.Code == wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND || record.Status == NETCM_SUCCESS)
        return {};
    return status_words(record.Status, record.Word5);
}

class Story {
  public:
    explicit Story(const Record& record) : record_(record), from_(record.entries.front().kept.time) {}

    json tell() {
        for (const RecordEntry& entry : record_.entries)
            entry.kept.kind == PassingKind::kNote ? take_note(entry) : take_message(entry);
        const int64_t to = at(record_.entries.back());
        for (auto& [key, client] : clients_) {
            for (auto& [profile, call] : client.calls)
                close(call, to, "");
            for (const Waiting& waiting : client.waiting)
                add_problem(waiting.time, client.index, "no answer to " + waiting.name, 1);
        }
        std::ranges::stable_sort(problems_,
                                 [](const json& a, const json& b) { return a["rank"] > b["rank"]; });
        json about = record_.begin;
        about["files"] = record_.files;
        about["lost"] = record_.lost();
        return {{"about", about},
                {"from", from_},
                {"to", to},
                {"clients", people_},
                {"calls", calls_},
                {"rows", thinned()},
                {"marks", marks_},
                {"problems", problems_},
                {"counts", {{"requests", requests_}, {"left out", left_out_}}}};
    }

  private:
    struct Waiting {
        int64_t time;
        uint32_t answer;
        std::string name;
        size_t row;
    };
    struct OpenCall {
        size_t index = 0;
        bool open = false;
    };
    struct Person {
        size_t index = 0;
        std::deque<Waiting> waiting;
        std::map<int32_t, OpenCall> calls;  // by profile
    };

    int64_t at(const RecordEntry& entry) const { return entry.kept.time - from_; }

    Person& person(const RecordEntry& entry) {
        const auto [found, made] = clients_.try_emplace({entry.server, entry.kept.client});
        if (made) {
            found->second.index = people_.size();
            people_.push_back({{"client", entry.kept.client},
                               {"server", entry.server},
                               {"from", at(entry)},
                               {"to", nullptr},
                               {"why", ""}});
        }
        return found->second;
    }

    void add_problem(int64_t time, std::optional<size_t> client, const std::string& text, int rank) {
        problems_.push_back(
            {{"t", time}, {"text", text}, {"rank", rank}, {"row", rows_.empty() ? 0 : rows_.size() - 1}});
        problems_.back()["c"] = client ? json(*client) : json(nullptr);
    }

    void add_mark(const RecordEntry& entry, const std::string& text, bool bad) {
        marks_.push_back({{"t", at(entry)}, {"text", text}, {"bad", bad}});
    }

    size_t add_row(const RecordEntry& entry, const char* kind, const std::string& name, const json& fields) {
        json row{{"t", at(entry)}, {"k", kind}, {"name", name}, {"f", fields_text(fields)}};
        if (entry.kept.client != 0)
            row["c"] = person(entry).index;
        if (entry.kept.number != 0)
            row["n"] = entry.kept.number;
        rows_.push_back(std::move(row));
        return rows_.size() - 1;
    }

    static std::string fields_text(const json& fields) {
        std::string text;
        for (const auto& [key, value] : fields.items())
            text += (text.empty() ? "" : " ") + key + "=" +
                    (value.is_string() ? value.get<std::string>() : to_line(value));
        return text;
    }

    void take_note(const RecordEntry& entry) {
        const json& note = entry.note;
        const std::string kind = note.value("note", "");
        json fields = note;
        for (const char* key : {"note", "number", "time", "client"})
            fields.erase(key);
        if (kind != "begin" && kind != "server")
            add_row(entry, "note", kind, fields);
        if (kind == "client")
            meet(entry);
        else if (kind == "gone")
            leave(entry);
        else if (kind == "call")
            take_earlier_call(entry);
        else if (kind == "lost")
            lose(entry);
        else if (kind == "operator")
            add_mark(entry, "operator: " + to_line(note.value("command", json::object())), false);
        else if (kind == "end" || kind == "server gone")
            end(entry, kind == "end" ? "end of the record: " + note.value("why", "") : "the server has gone");
        else if (kind == "turned away")
            add_problem(at(entry), std::nullopt,
                        "process " + note.value("process", json()).dump() +
                            " is turned away: " + note.value("why", ""),
                        1);
    }

    void meet(const RecordEntry& entry) {
        json& someone = people_[person(entry).index];
        for (const char* key : {"process", "user", "application"})
            if (entry.note.contains(key))
                someone[key] = entry.note[key];
    }

    void leave(const RecordEntry& entry) {
        Person& client = person(entry);
        const std::string why = entry.note.value("why", "");
        people_[client.index]["to"] = at(entry);
        people_[client.index]["why"] = why;
        for (auto& [profile, call] : client.calls)
            close(call, at(entry), "its client has gone: " + why);
        if (why != "it has closed" && why != "its client has gone")
            add_problem(at(entry), client.index, "the client has gone: " + why, 2);
    }

    void end(const RecordEntry& entry, const std::string& text) {
        const bool bad = text.find("died") != std::string::npos || text.find("gone") != std::string::npos;
        add_mark(entry, text, bad);
        if (text.find("died") != std::string::npos)
            add_problem(at(entry), std::nullopt, text, 3);
    }

    void lose(const RecordEntry& entry) {
        const std::string text = std::to_string(entry.note.value("count", uint64_t{0})) +
                                 " entries are lost here: " + entry.note.value("why", "");
        add_mark(entry, text, true);
        add_problem(at(entry), std::nullopt, text, 4);
        rows_.back()["bad"] = true;
    }

    void take_earlier_call(const RecordEntry& entry) {
        for (const json& user : entry.note.value("users", json::array())) {
            const auto found = clients_.find({entry.server, user.value("client", 0U)});
            if (found == clients_.end())
                continue;
            OpenCall& call = found->second.calls[user.value("profile", 0)];
            if (call.open)
                continue;
            begin(call, found->second.index, user.value("profile", 0), at(entry));
            calls_[call.index]["call"] = entry.note.value("call", 0);
            phase(call, at(entry), entry.note.value("state", "") == "suspended" ? "suspended" : "up",
                  "open before");
        }
    }

    void begin(OpenCall& call, size_t client, int32_t profile, int64_t time) {
        close(call, time, "opened again");
        call = {calls_.size(), true};
        calls_.push_back({{"c", client},
                          {"profile", profile},
                          {"call", nullptr},
                          {"phases", json::array()},
                          {"to", nullptr},
                          {"why", ""}});
    }

    void phase(const OpenCall& call, int64_t time, const char* name, const std::string& text) {
        calls_[call.index]["phases"].push_back({{"t", time}, {"name", name}, {"text", text}});
    }

    void close(OpenCall& call, int64_t time, const std::string& why) {
        if (!std::exchange(call.open, false))
            return;
        calls_[call.index]["to"] = time;
        calls_[call.index]["why"] = why;
    }

    void take_message(const RecordEntry& entry) {
        const json decoded = described(entry);
        const std::string name = decoded.at("name");
        const size_t row = add_row(entry, to_text(entry.kept.kind), name, decoded.at("fields"));
        if (entry.kept.kind == PassingKind::kRequest)
            take_request(entry, name, row);
        else
            take_answer(entry, name, row);
    }

    void take_request(const RecordEntry& entry, const std::string& name, size_t row) {
        ++requests_;
        const Request request = request_in(entry.kept.bytes);
        Person& client = person(entry);
        const wire::CommandEntry* command = wire::find_command(request.header.Command);
        if (command != nullptr && command->answer != 0)
            client.waiting.push_back({at(entry), command->answer, name, row});
        if (request.header.Command == wire::NETCM_CLIENT_START_REQ) {
            const auto profile = static_cast<int32_t>(request.header.Arg4);
            OpenCall& call = client.calls[profile];
            if (call.open)
                return;
            begin(call, client.index, profile, at(entry));
            phase(call, at(entry), "starting", "is asked for");
        }
    }

    void take_answer(const RecordEntry& entry, const std::string& name, size_t row) {
        const wire::Record record = record_in(entry.kept);
        const bool event = entry.kept.kind == PassingKind::kEvent;
        Person& client = person(entry);
        const std::string failure = failure_of(record, event);
        if (!failure.empty()) {
            rows_[row]["bad"] = true;
            rows_[row]["why"] = failure;
            add_problem(at(entry), client.index, name + ": " + failure, 2);
        }
        answer(client, record.Code, at(entry), row);
        follow_call(client, record, event, at(entry), failure);
    }

    // The request that it answers is the first that waits for this code.
    void answer(Person& client, uint32_t code, int64_t time, size_t row) {
        const auto found = std::ranges::find(client.waiting, code, &Waiting::answer);
        if (found == client.waiting.end())
            return;
        const int64_t latency = time - found->time;
        rows_[found->row]["l"] = latency;
        if (rows_[row].contains("bad"))
            rows_[found->row]["bad"] = true;
        if (latency >= kSlow)
            add_problem(time, client.index,
                        found->name + " has been answered after " + std::to_string(latency / 1000) + " ms",
                        1);
        client.waiting.erase(found);
    }

    OpenCall* call_of(Person& client, const wire::Record& record) {
        const auto found = client.calls.find(static_cast<int32_t>(record.Word2));
        if (found != client.calls.end() && found->second.open)
            return &found->second;
        for (auto& [profile, call] : client.calls)
            if (call.open && calls_[call.index]["call"] == record.CallId)
                return &call;
        return nullptr;
    }

    void follow_call(Person& client, const wire::Record& record, bool event, int64_t time,
                     const std::string& failure) {
        OpenCall* call = is_about_call(record.Code) ? call_of(client, record) : nullptr;
        if (call == nullptr)
            return;
        const std::string why = failure.empty() ? "" : ": " + failure;
        if (record.Code == wire::NETCM_CLIENT_START_RSP && record.Status != NETCM_SUCCESS)
            close(*call, time, "refused" + why);
        else if (record.Code == wire::NETCM_CLIENT_START_RSP && !event)
            calls_[call->index]["call"] = record.CallId;
        else if (record.Code == wire::NETCM_CLIENT_START_RSP)
            phase(*call, time, "up", "is up");
        else if (record.Code == wire::NETCM_CLIENT_SUSPEND_IND)
            phase(*call, time, "suspended", "is suspended" + why);
        else if (record.Code == wire::NETCM_CLIENT_RESUME_IND)
            phase(*call, time, "up", "runs again" + why);
        else if (record.Code == wire::NETCM_CLIENT_IP_CHANGE_IND)
            phase(*call, time, "up", "has another address");
        else if (record.Code == wire::NETCM_CLIENT_STOP_IND)
            close(*call, time, "ended" + why);
        else if (record.Status == NETCM_SUCCESS)
            close(*call, time,
                  record.Code == wire::NETCM_CLIENT_STOP_RSP ? "closed by the client" : "killed");
    }

    // Without the unremarkable, when there is too much.
    json thinned() {
        const size_t all = rows_.size();
        size_t too_many = all > kMostRows ? all - kMostRows : 0;
        json kept = json::array();
        std::vector<size_t> place(all, 0);
        for (size_t i = 0; i < all; ++i) {
            json& row = rows_[i];
            place[i] = kept.size();
            const bool plain =
                !row.contains("bad") && row["k"] != "note" && row.value("l", int64_t{0}) < kSlow;
            if (plain && too_many > 0) {
                --too_many;
                ++left_out_;
            } else {
                kept.push_back(std::move(row));
            }
        }
        for (json& problem : problems_)
            problem["row"] = place[problem["row"].get<size_t>()];
        return kept;
    }

    const Record& record_;
    int64_t from_;
    std::map<std::pair<uint32_t, uint32_t>, Person> clients_;
    json people_ = json::array();
    json calls_ = json::array();
    json marks_ = json::array();
    std::vector<json> problems_;
    std::vector<json> rows_;
    size_t requests_ = 0;
    size_t left_out_ = 0;
};

}  // namespace

json story_of(const Record& record) {
    return Story(record).tell();
}

}  // namespace quorvel::cm
