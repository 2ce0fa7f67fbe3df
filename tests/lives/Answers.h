// What the server answers to requests that are about no call. Each answer follows from its request and from a
// ticket, so that it cannot be taken for the answer to another one.
#pragma once

#include "Calls.h"
#include "Model.h"
#include "Random.h"
#include "quorvel/NetPM.h"
#include "support/Answer.h"

namespace quorvel::lives {

// The detail of what a profile-manager request asks, and of the other two that have room for little.
constexpr uint32_t detail_of(uint32_t command, int32_t about) {
    return command << 16 | (static_cast<uint32_t>(about) & 0xffff);
}
int32_t number_of(const char* text);

// A stored profile, as both sides make it and check it.
NetPMProfile profile_of(uint32_t number);
bool is_profile_of(const NetPMProfile& profile, uint32_t number);

class Answers {
  public:
    Answers(Model& model, Random& random, Calls& calls, Outbox& outbox)
        : model_(model), random_(random), calls_(calls), outbox_(outbox) {}

    // Nothing for a request that is answered later, or not at all.
    test::Bytes answer(const test::Request& request);

  private:
    void expect_known(const wire::RequestHeader& header);
    test::Bytes plain(const test::Request& request, uint32_t detail);
    test::Bytes with_ticket(const test::Request& request, uint32_t detail, uint32_t wire::Record::*word);
    template <class Block, class Fill>
    test::Bytes list(const test::Request& request, uint32_t detail, Fill fill);
    test::Bytes connections(const test::Request& request);
    test::Bytes statistics(const test::Request& request);
    test::Bytes default_profile(const test::Request& request);
    test::Bytes tunnel(const test::Request& request);
    test::Bytes profile_manager(const test::Request& request);
    test::Bytes application_profile(const test::Request& request);
    void push_proper_profile(int32_t application);
    bool refuses() { return model_.has(kRefusals) && random_.one_in(10); }

    Model& model_;
    Random& random_;
    Calls& calls_;
    Outbox& outbox_;
    int32_t default_profile_ = 1;
};

}  // namespace quorvel::lives
