// The fields of a profile: one table serves the options of `netcm profile add`, the JSON file, and what is
// shown.
#pragma once

#include <quorvel/NetPM.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace quorvel::netcm {

// Which profiles have the field.
enum class Part { kEvery, kPdp, kWlan, kWep, kPsk, kEap };

enum class Kind { kType, kText, kProxy, kAddress, kFlag, kSigned, kUnsigned, kKeyIndex };

struct Field {
    const char* key;  // in JSON; as an option "user_name" is --user-name
    Part part;
    Kind kind;
    size_t offset;
    size_t size;   // of one value
    size_t count;  // how many values it has room for
    bool secret;
    const char* help;
};

std::span<const Field> profile_fields();

bool has_field(const NetPMProfile& profile, const Field& field);

// A secret's asterisks, and the text of any other field: what messages and masked output show of a value.
inline constexpr const char* kAsterisks = "********";
std::string masked(const Field& field, const std::string& text);

// Why a text is no value for the field; empty when it is one.
std::string problem_with(const Field& field, std::string_view text);

// One value of a field as text; flags are "yes" and "no". Storing expects a value without a problem.
std::string read_field(const NetPMProfile& profile, const Field& field, size_t index);
void store_field(NetPMProfile& profile, const Field& field, size_t index, std::string_view text);

}  // namespace quorvel::netcm
