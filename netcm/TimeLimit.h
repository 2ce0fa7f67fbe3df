// How long the CM server may take to answer, when the user has said it.
#pragma once

namespace quorvel::netcm {

// From here on the process ends with status 1 when the time is up: the library has limits of its own, of up
// to a minute, and its calls cannot be left. What it had open ends with it.
void start_time_limit(double seconds);
// The answer has come; what follows may take as long as it likes.
void stop_time_limit();

}  // namespace quorvel::netcm
