#include "record/lives.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "monitor/decode.h"
#include "protocol/cursor.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

uint32_t code_of(std::span<const std::byte> bytes) {
    uint32_t code = 0;
    (void)Cursor(bytes).read(code);
    return code;
}

// Which of the servers, and its client.
using Key = std::pair<uint32_t, uint32_t>;

class Collector {
  public:
    Collector(bool with_secrets, Lives& lives) : with_secrets_(with_secrets), lives_(lives) {}

    void take(const RecordEntry& entry) {
        if (entry.kept.kind == PassingKind::kNote)
            return take_note(entry);
        if (entry.kept.client == 0)
            return;
        Life& life = life_of(entry);
        const uint32_t code = code_of(entry.kept.bytes);
        const bool request = entry.kept.kind == PassingKind::kRequest;
        if (request && code == wire::NETCM_CLIENT_REGISTER_REQ) {
            life.begins_in_the_middle = false;
            life.application = static_cast<int32_t>(request_in(entry.kept.bytes).header.Arg5);
        } else if (entry.kept.kind == PassingKind::kAnswer && code == wire::NETCM_CLIENT_REGISTER_RSP) {
            life.registration_answer = entry.kept.bytes;
        } else if (!request || code != wire::NETCM_CLIENT_ASYNC_REGISTER_REQ) {
            Step step{entry.kept.kind, entry.kept.time, code, entry.kept.bytes, {}};
            if (request)
                step.comparable = comparable(request_in(step.bytes), with_secrets_);
            life.steps.push_back(std::move(step));
        }
    }

  private:
    Life& life_of(const RecordEntry& entry) {
        const Key key{entry.server, entry.kept.client};
        const auto found = places_.find(key);
        if (found != places_.end())
            return lives_.all[found->second];
        places_[key] = lives_.all.size();
        lives_.all.emplace_back();
        lives_.all.back().client = entry.kept.client;
        lives_.all.back().begin = entry.kept.time;
        return lives_.all.back();
    }

    void take_note(const RecordEntry& entry) {
        const std::string kind = entry.note.value("note", "");
        if (kind == "lost")
            lives_.lost += entry.note.value("count", uint64_t{0});
        if (kind == "client") {
            Life& life = life_of(entry);
            life.process = entry.note.value("process", int64_t{0});
            life.application = entry.note.value("application", 0);
        }
        if (kind == "call")
            for (const json& profile : entry.note.value("profiles", json::array()))
                lives_.earlier_calls.push_back({entry.note.value("call", 0U), profile.value("profile", 0),
                                                entry.note.value("address", "127.0.0.1"),
                                                entry.note.value("interface", "lo")});
    }

    bool with_secrets_;
    Lives& lives_;
    std::map<Key, size_t> places_;
};

}  // namespace

Request request_in(std::span<const std::byte> bytes) {
    Request request;
    Cursor cursor(bytes);
    if (!cursor.read(request.header))
        return request;
    const auto payload = cursor.take(cursor.remaining());
    request.payload.assign(payload.begin(), payload.end());
    return request;
}

// The client id, and in a registration the descriptor that stands in its place, differ from run to run; a
// record without secrets knows nothing of them.
std::vector<std::byte> comparable(const Request& request, bool with_secrets) {
    wire::RequestHeader header = request.header;
    header.ClientId = 0;
    std::vector<std::byte> bytes(sizeof(header) + request.payload.size());
    std::memcpy(bytes.data(), &header, sizeof(header));
    std::ranges::copy(request.payload, bytes.begin() + sizeof(header));
    if (!with_secrets)
        hide(bytes, secrets_of(request));
    return bytes;
}

std::string words_of(const Request& request) {
    const json asked = decode(request);
    return asked.at("name").get<std::string>() + " " + to_line(asked.at("fields"));
}

std::string words_of(const Step& step) {
    return words_of(request_in(step.bytes));
}

Lives lives_of(const Record& record, uint32_t client) {
    Lives lives;
    lives.with_secrets = record.has_secrets();
    Collector collector(lives.with_secrets, lives);
    for (const RecordEntry& entry : record.entries)
        collector.take(entry);
    if (client != 0)
        std::erase_if(lives.all, [client](const Life& life) { return life.client != client; });
    if (lives.all.empty())
        throw RecordError(record.files.back() + ": there is nothing of " +
                          (client == 0 ? "a client" : "this client"));
    return lives;
}

}  // namespace quorvel::cm
