// What a lookup has brought.
#pragma once

#include <netdb.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Json.h"

namespace quorvel::netcm {

inline constexpr char kCacheSource[] = "cache";
inline constexpr char kLocalSource[] = "local";  // the name itself says it

struct Answer {
    std::string asked;
    std::string name;
    std::vector<std::string> aliases;
    std::vector<std::string> addresses;
    std::optional<uint32_t> ttl;  // seconds, where a server has told
    std::string source;           // one of those above, or the server
    std::string error;            // why there is nothing; empty when there is
    std::chrono::duration<double, std::milli> time{};
};

// Copies the host; nothing of it is needed afterwards.
void copy_host(Answer& answer, const hostent& host);

Json to_json(const Answer& answer);

}  // namespace quorvel::netcm
