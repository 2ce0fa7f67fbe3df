// What the public headers declare, read from their text.
#pragma once

#include <map>
#include <set>
#include <string>

namespace quorvel::test {

using Names = std::set<std::string>;

std::string contents_of(const std::string& path);

// Every function and object.
Names declared_in_the_headers();
// Every enumerator, and every macro with a value.
Names constants_in_the_headers();
// The members of every structure, by its name; those of a union within it are among them.
std::map<std::string, Names> records_in_the_headers();

}  // namespace quorvel::test
