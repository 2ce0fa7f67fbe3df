#include "Troubles.h"

namespace quorvel::lives {
namespace {

constexpr std::string_view kNames[] = {
#define X(name) #name,
    QV_TROUBLES(X)
#undef X
};

}  // namespace

std::string to_text(Troubles troubles) {
    std::string text;
    for (unsigned number = 0; number < trouble_number::kCount; ++number)
        if ((troubles & (1u << number)) != 0)
            text += (text.empty() ? "" : ",") + std::string(kNames[number]);
    return text.empty() ? "none" : text;
}

Troubles troubles_from(std::string_view text) {
    Troubles troubles = 0;
    while (!text.empty()) {
        const size_t end = text.find(',');
        for (unsigned number = 0; number < trouble_number::kCount; ++number)
            if (text.substr(0, end) == kNames[number])
                troubles |= 1u << number;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return troubles;
}

}  // namespace quorvel::lives
