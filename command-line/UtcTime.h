// Times as both programs print them: in UTC, with their date.
#pragma once

#include <chrono>
#include <string>

namespace quorvel::command_line {

// "2026-11-22T02:08:07.289Z"
std::string utc_time(std::chrono::system_clock::time_point time);

}  // namespace quorvel::command_line
