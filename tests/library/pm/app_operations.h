// Every application-profile operation that waits for its answer, called with good arguments.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "library/pm/pm_test.h"

namespace quorvel::test {

struct AppOperation {
    std::string name;
    uint32_t command;
    std::function<uint32_t()> call;
    wire::AppProfMsg message;
    bool answers_with_truth;  // 1 and 0 in place of a status
};

inline void PrintTo(const AppOperation& operation, std::ostream* out) {
    *out << operation.name;
}

const std::vector<AppOperation>& app_operations();

}  // namespace quorvel::test
