// The benchmarks; each adds its section to the report.
#pragma once

#include "Report.h"
#include "quorvel/NetCM.h"

namespace quorvel::bench {

// One request and its answer, beside the bare system calls and D-Bus.
void measure_exchange(Report& report);
// A record from the server's hand to the application's callback, and back.
void measure_push(Report& report);
// The callback that the process registers.
void on_event(NetCMEvent* event);
// Sixteen threads on the one link, wherever the system puts them; and with the server on one CPU.
void measure_threads(Report& report);
void measure_threads_on_one_cpu(Report& report);
// The resolver: a lookup, the decoder, the cache.
void measure_names(Report& report);
// Lookups in the background. Registers by itself, for a connection of its own.
void measure_background(Report& report);
// Start and memory of a program that uses the library, beside others. Needs the server, and no registration.
void measure_start(Report& report);

}  // namespace quorvel::bench
