// Pauses that a signal does not cut short.
#pragma once

namespace quorvel {

void pause_for(unsigned seconds);

}  // namespace quorvel
