#include "Inbox.h"

namespace quorvel::netcm {

Queue<Message>& inbox() {
    static auto* const the_inbox = new Queue<Message>;
    return *the_inbox;
}

}  // namespace quorvel::netcm
