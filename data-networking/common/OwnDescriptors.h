// The descriptors that are the library's, for the child of a fork to close.
#pragma once

namespace quorvel {

// From the opening to right before the closing. A descriptor that is not noted for the moment between is one
// that a child keeps; one noted too long would be somebody else's that a child closes. -1 is none.
void note_descriptor(int fd);
void forget_descriptor(int fd);

// Forgets and closes. The result of close.
int close_own(int fd);

void close_descriptors_in_child();

}  // namespace quorvel
