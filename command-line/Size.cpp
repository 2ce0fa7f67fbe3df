#include "command-line/Size.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

namespace quorvel::command_line {

std::optional<uint64_t> bytes_from(const std::string& text) {
    std::string bytes = text;
    try {
        return CLI::AsSizeValue(false)(bytes).empty() ? std::optional<uint64_t>(std::stoull(bytes))
                                                      : std::nullopt;
    } catch (const CLI::Error&) {
        return std::nullopt;  // an unknown unit
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

}  // namespace quorvel::command_line
