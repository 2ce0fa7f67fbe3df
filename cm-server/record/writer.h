// The process that writes the record of a server.
#pragma once

#include "record/file.h"
#include "record/ring.h"

namespace quorvel::cm {

// What the writer tells the server begins with one of these.
inline constexpr char kTellsTrouble = '!';
inline constexpr char kTellsGoesOn = '.';
inline constexpr char kTellsNewPart = '+';
inline constexpr char kTellsReady = '=';

// Opens the files, and writes until the other end of the socket has gone and the ring is empty. To be called
// in a process of its own, which ends with it.
[[noreturn]] void write_record(const RecordPlan& plan, Ring& ring, int socket);

}  // namespace quorvel::cm
