// Many short lives of an application that uses all of the library, with a server that does what a real one
// may.
//
//   QUORVEL_LIVES=N            so many of them, in each test
//   QUORVEL_LIVES_SEED=S       from this seed on
//   QUORVEL_LIVES_TROUBLES=T   these troubles (Sharing,Deaths,...) instead of the seed's own
//   QUORVEL_LIVES_REPEAT=R     each of them so often: the order of threads is another one every time
#include <gtest/gtest.h>

#include <cstdlib>

#include "Life.h"
#include "Random.h"
#include "Report.h"
#include "quorvel/NetDNS.h"

namespace quorvel::lives {
namespace {

// What a preset can do in a few seconds for each test; script/nightly lives many more.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr uint64_t kLives = 60;
#else
constexpr uint64_t kLives = 150;
#endif

uint64_t number_from(const char* name, uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

// The sure ones, and some of the possible ones.
Troubles troubles_of(uint64_t seed, Troubles sure, Troubles possible) {
    if (const char* text = std::getenv("QUORVEL_LIVES_TROUBLES"))
        return troubles_from(text);
    const Troubles troubles = sure | (possible & static_cast<Troubles>(Random(seed, 4000).next() >> 20));
    // Of a call whose start was interrupted the library knows nothing. Given its id at once, the next call
    // would be told what is said about it, and nobody could tell the two apart.
    // Nor do the rare answers of the model in a life that has these together always hold: such a life is
    // lived by hand.
    return (troubles & (kSignals | kCallbacks | kDeaths)) != 0 ? troubles & ~kReuse : troubles;
}

void live_many(Troubles sure, Troubles possible) {
    report::watch_for_crashes();
    // What the library keeps for the whole process is there before the first life.
    NetDNSGetHostByName(1, "localhost");
    const uint64_t first = number_from("QUORVEL_LIVES_SEED", 1);
    const uint64_t count = number_from("QUORVEL_LIVES", kLives);
    const uint64_t repeat = number_from("QUORVEL_LIVES_REPEAT", 1);
    for (uint64_t seed = first; seed < first + count; ++seed)
        for (uint64_t time = 0; time < repeat; ++time)
            live(seed, troubles_of(seed, sure, possible));
}

TEST(Lives, are_calm) {
    live_many(0, kCalmTroubles);
}

// What is neither a matter of ids nor of kills, the server's life or the threads'.
constexpr Troubles kOrdinaryTroubles = kCalmTroubles | kDepartures | kSuspensions | kImpatience;

TEST(Lives, are_ordinary) {
    live_many(kDepartures | kSuspensions | kImpatience, kCalmTroubles);
}

TEST(Lives, reuse_ids_at_once) {
    live_many(kReuse, kOrdinaryTroubles | kKills);
}

TEST(Lives, kill_connections) {
    live_many(kKills, kOrdinaryTroubles);
}

TEST(Lives, go_on_when_the_server_dies) {
    live_many(kDeaths, kOrdinaryTroubles | kReuse | kKills);
}

TEST(Lives, are_interrupted_by_signals) {
    live_many(kSignals, kOrdinaryTroubles);
}

TEST(Lives, have_callbacks_that_call_the_library) {
    live_many(kCallbacks, kOrdinaryTroubles | kKills | kReuse);
}

TEST(Lives, have_every_trouble) {
    live_many(0, kAllTroubles);
}

}  // namespace
}  // namespace quorvel::lives
