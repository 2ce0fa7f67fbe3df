// What makes a life hard: a set of these, chosen by its seed.
#pragma once

#include <string>
#include <string_view>

namespace quorvel::lives {

using Troubles = unsigned;

// Name and meaning. The first five are what a calm life may have.
#define QV_TROUBLES(X)                                                                          \
    X(Sharing)     /* two of the profiles lead to one access point, and share a call */         \
    X(Network)     /* the network ends calls, and changes their addresses */                    \
    X(Refusals)    /* the server says no, at once or later */                                   \
    X(Disorder)    /* pushed records are late, come in batches, and overtake one another */     \
    X(Slowness)    /* answers take their time, and come in pieces */                            \
    X(Departures)  /* threads deregister in the middle of their lives, and come back */         \
    X(Suspensions) /* the network suspends calls, and resumes them */                           \
    X(Kills)       /* connections are killed, and all of them cleaned up */                     \
    X(Reuse)       /* an id that is free is given away at once, whatever is still to be told */ \
    X(Deaths)      /* the server dies, within whatever it is doing, and comes back */           \
    X(Signals)     /* handlers that interrupt the application's threads */                      \
    X(Callbacks)   /* callbacks call the library */                                             \
    X(Impatience)  /* threads close what they are not answered about yet, also again */         \
    X(OddIds)      /* the server has no sensible default profile */

namespace trouble_number {
#define X(name) name,
enum : unsigned { QV_TROUBLES(X) kCount };
#undef X
}  // namespace trouble_number

#define X(name) k##name = 1u << trouble_number::name,
enum : Troubles {
    QV_TROUBLES(X) kAllTroubles = (1u << trouble_number::kCount) - 1,
    kCalmTroubles = kSharing | kNetwork | kRefusals | kDisorder | kSlowness
};
#undef X

// "Sharing,Deaths", and back. A name that is none stands for nothing.
std::string to_text(Troubles troubles);
Troubles troubles_from(std::string_view text);

}  // namespace quorvel::lives
