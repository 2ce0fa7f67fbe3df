#include "command-line/Size.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

namespace quorvel::command_line {

std::optional<uint64_t> bytes_from(const std::string& text) {
    std::string bytes = text;
    if (!CLI::AsSizeValue(false)(bytes).empty()) {
        return std::nullopt;
    }
    try {
        return std::stoull(bytes);
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

}  // namespace quorvel::command_line
