#include "Answer.h"

#include <arpa/inet.h>

#include <array>
#include <cmath>

namespace quorvel::netcm {

void copy_host(Answer& answer, const hostent& host) {
    answer.name = host.h_name == nullptr ? "" : host.h_name;
    for (char** alias = host.h_aliases; *alias != nullptr; ++alias) {
        answer.aliases.emplace_back(*alias);
    }
    for (char** address = host.h_addr_list; *address != nullptr; ++address) {
        std::array<char, INET_ADDRSTRLEN> text{};
        answer.addresses.emplace_back(inet_ntop(AF_INET, *address, text.data(), text.size()));
    }
}

Json to_json(const Answer& answer) {
    Json out{{"asked", answer.asked}};
    if (!answer.error.empty()) {
        out["error"] = answer.error;
    } else {
        out["name"] = answer.name;
        out["aliases"] = answer.aliases;
        out["addresses"] = answer.addresses;
    }
    if (answer.ttl) {
        out["ttl"] = *answer.ttl;
    }
    if (!answer.source.empty()) {
        out["source"] = answer.source;
    }
    out["milliseconds"] = std::round(answer.time.count() * 1000) / 1000;
    return out;
}

}  // namespace quorvel::netcm
