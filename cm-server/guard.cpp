#include "guard.h"

#include <cstdlib>
#include <utility>

#include "log.h"

namespace quorvel::cm {
namespace {

// Taken as a mapping of its own, and given back as one: where the address space is what is short, it helps.
constexpr size_t kPutAside = size_t{1} * 1024 * 1024;

void* g_put_aside = nullptr;

void give_up() {
    if (g_put_aside == nullptr)
        throw std::bad_alloc();
    std::free(std::exchange(g_put_aside, nullptr));
}

}  // namespace

void keep_memory_for_trouble() noexcept {
    std::set_new_handler(&give_up);
    if (g_put_aside == nullptr)
        g_put_aside = std::malloc(kPutAside);
}

const char* words_of(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
}

void report_failure(const char* what, const char* why) noexcept {
    log::error(what, " has failed: ", why);
    keep_memory_for_trouble();
}

}  // namespace quorvel::cm
