// The fields of a profile record: where they lie, and which column keeps them.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <variant>

#include "quorvel/NetPM.h"

namespace quorvel::cm {

// The part of the record that a field belongs to.
enum class Part { kPdp, kWlan, kWep, kPsk, kEap };

struct Field {
    enum class Kind { kText, kSigned, kUnsigned, kShort, kByte, kAddress };
    Part part;
    const char* column;
    Kind kind;
    size_t offset;
    size_t size;
};

std::span<const Field> profile_fields();

// Whether the record has this part: by its type, and by the security mode of a Wi-Fi profile.
bool has_part(const NetPMProfile& profile, Part part);
// The table that keeps a part, "pdp_profile" or "wlan_profile".
const char* table_of(Part part);

// A field's value: a number, or text; an address is dotted text.
using FieldValue = std::variant<int64_t, std::string>;
FieldValue get_field(const NetPMProfile& profile, const Field& field);
// Text is cut to what the field holds.
void set_field(NetPMProfile& profile, const Field& field, const FieldValue& value);

// Whether a text field ends within its size.
bool ends_within(const NetPMProfile& profile, const Field& field);

}  // namespace quorvel::cm
