// Numbers with their units, for people.
#pragma once

#include <string>

namespace quorvel::netcm {

// "17 B", "1.2 MB"; "1.2 MB/s"; "3/s".
std::string size_text(double bytes);
std::string rate_text(double bytes_per_second);
std::string count_text(double per_second);

}  // namespace quorvel::netcm
