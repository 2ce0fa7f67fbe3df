// What passes, as text or JSON on standard output.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace quorvel::cm {

struct Show {
    bool as_json = false;
    bool secrets = false;
    uint32_t client = 0;  // 0: every client
};

// Whether it is about the client that is to be shown, or about all.
bool concerns(const nlohmann::json& line, uint32_t client);

// "2026-11-22T02:20:42.170Z   1 --> NETCM_CLIENT_START_REQ profile=1", of a line that has been decoded.
std::string text_of(const nlohmann::json& passing, bool coloured);

class Printer {
  public:
    explicit Printer(Show show);
    void print(const std::string& lines) const;

  private:
    void print_one(const nlohmann::json& line) const;
    Show show_;
    bool coloured_;
};

}  // namespace quorvel::cm
