// What the child of a fork does about the log file of applications.
#pragma once

namespace quorvel {

// Frees the lock of the log file's functions, whoever held it in the parent. The file itself stays open: it
// is an ordinary stream, and parent and child append to it.
void log_file_in_child();

}  // namespace quorvel
