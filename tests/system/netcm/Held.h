// A `netcm open` that holds its connection beside the test.
#pragma once

#include <csignal>

#include "Netcm.h"

namespace quorvel::test {

class Held {
  public:
    explicit Held(const std::string& profile = "0") : open_(netcm_command({"open", profile, "--json"})) {
        open_.wait_for_out("open_response");
    }

    Program& program() { return open_; }

    // Its events up to the end, which it is asked for after it has seen the text.
    std::vector<nlohmann::json> events_with(const std::string& text) {
        open_.wait_for_out(text);
        open_.send_signal(SIGINT);
        return json_lines(open_.wait().out);
    }

  private:
    Program open_;
};

}  // namespace quorvel::test
