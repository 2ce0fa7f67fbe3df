#include "JsonText.h"

#include "Hex.h"

namespace quorvel::netcm {
namespace {

constexpr const char* kHex = "hex";

bool survives_json(const std::string& text) {
    return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::ignore)) == text;
}

}  // namespace

Json text_to_json(const std::string& text) {
    if (survives_json(text)) {
        return text;
    }
    return {{kHex, hex_text({reinterpret_cast<const uint8_t*>(text.data()), text.size()})}};
}

std::optional<std::string> text_from_json(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    const auto bytes = is_hex_object(value) ? from_hex(value.at(kHex).get<std::string>()) : std::nullopt;
    return bytes ? std::optional(std::string(bytes->begin(), bytes->end())) : std::nullopt;
}

bool is_hex_object(const Json& value) {
    return value.is_object() && value.size() == 1 && value.contains(kHex) && value.at(kHex).is_string();
}

}  // namespace quorvel::netcm
