#include "record/passing.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "common/Wire.h"
#include "control/arguments.h"
#include "monitor/decode.h"
#include "protocol/cursor.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

constexpr std::array<const char*, 4> kKinds{"request", "answer", "event", "note"};

PassingKind kind_of(const std::string& name) {
    for (size_t i = 0; i < kKinds.size(); ++i)
        if (name == kKinds[i])
            return static_cast<PassingKind>(i);
    throw std::invalid_argument("there is no direction \"" + name + "\"");
}

const char* name_of(PassingKind kind, std::span<const std::byte> head) {
    uint32_t code = 0;
    if (!Cursor(head).read(code))
        return "";
    if (kind == PassingKind::kRequest) {
        const wire::CommandEntry* command = wire::find_command(code);
        return command != nullptr ? command->name : "";
    }
    const wire::EventEntry* event = wire::find_event(code);
    return event != nullptr ? event->name : "";
}

void append_secrets(std::string& line, std::span<const Secret> secrets) {
    if (secrets.empty())
        return;
    line += R"(,"secrets":[)";
    for (const Secret& secret : secrets)
        line += (&secret == secrets.data() ? "[" : ",[") + std::to_string(secret.at) + "," +
                std::to_string(secret.size) + "]";
    line += "]";
}

std::string_view text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::byte> bytes_of(const std::string& text) {
    const auto whole = std::as_bytes(std::span(text));
    return {whole.begin(), whole.end()};
}

}  // namespace

const char* to_text(PassingKind kind) {
    return kKinds.at(static_cast<size_t>(kind));
}

int64_t microseconds_now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

Kept make_note(const json& note) {
    Kept kept;
    kept.time = microseconds_now();
    kept.client = note.value("client", 0U);
    kept.bytes = bytes_of(to_line(note));
    return kept;
}

void append_line(std::string& lines, const Passing& passing) {
    std::array<char, 192> start{};
    if (passing.kind == PassingKind::kNote) {
        std::snprintf(start.data(), start.size(), R"({"number":%llu,"time":%lld.%03lld,)",
                      static_cast<unsigned long long>(passing.number),
                      static_cast<long long>(passing.time / 1000),
                      static_cast<long long>(passing.time % 1000));
        lines.append(start.data()).append(text_of(passing.head).substr(1)).append("\n");
        return;
    }
    std::snprintf(start.data(), start.size(),
                  R"({"number":%llu,"time":%lld.%03lld,"client":%u,"direction":"%s","name":"%s","bytes":")",
                  static_cast<unsigned long long>(passing.number),
                  static_cast<long long>(passing.time / 1000), static_cast<long long>(passing.time % 1000),
                  passing.client, to_text(passing.kind), name_of(passing.kind, passing.head));
    lines.append(start.data()).append(to_hex(passing.head)).append(to_hex(passing.rest)).append("\"");
    append_secrets(lines, passing.secrets);
    lines += "}\n";
}

Kept kept_of(const json& line) {
    Kept kept;
    kept.number = line.value("number", uint64_t{0});
    kept.time = static_cast<int64_t>(std::llround(line.at("time").get<double>() * 1000.0));
    kept.kind = line.contains("note") ? PassingKind::kNote : kind_of(line.at("direction"));
    if (kept.kind == PassingKind::kNote) {
        json note = line;
        note.erase("number");
        note.erase("time");
        kept.client = line.value("client", 0U);
        kept.bytes = bytes_of(note.dump());
        return kept;
    }
    kept.client = line.at("client");
    kept.bytes = bytes(line.at("bytes"));
    for (const json& secret : line.value("secrets", json::array()))
        kept.secrets.push_back({secret.at(0), secret.at(1)});
    return kept;
}

}  // namespace quorvel::cm
