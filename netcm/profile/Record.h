// A profile between the library's record, JSON and named values.
#pragma once

#include <quorvel/NetPM.h>

#include <map>
#include <string>
#include <vector>

#include "Json.h"

namespace quorvel::netcm {

// The values of fields by their keys, as text; a field that is not here is not given.
using FieldValues = std::map<std::string, std::vector<std::string>>;

// Secrets are asterisks unless they are to be shown.
enum class Secrets { kMask, kShow };
Json to_json(const NetPMProfile& profile, Secrets secrets);

// Reads an object as `to_json` makes it; its profile id does not count. Throws a Failure that names the
// member that is unknown, of the wrong kind, or masked.
FieldValues values_from_json(const Json& object);

// The record of a new profile. What is not given but follows from the rest is filled in: the type, the
// security mode, the application protocol.
NetPMProfile make_profile(FieldValues values);

// Changes the fields given. Those of another type or security mode are forgotten when type or mode change.
void change_profile(NetPMProfile& profile, FieldValues values);

}  // namespace quorvel::netcm
