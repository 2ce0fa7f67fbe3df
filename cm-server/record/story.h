// What a record tells, put together: clients, their calls, requests with their answers, and what went wrong.
#pragma once

#include <nlohmann/json.hpp>

#include "record/reader.h"

namespace quorvel::cm {

// {"about", "from", "to", "clients", "calls", "rows", "marks", "problems", "counts"}; times in microseconds
// since "from".
nlohmann::json story_of(const Record& record);

}  // namespace quorvel::cm
