// The application's callbacks: they tell the model what they hear, and where a life has it so, call the
// library.
#pragma once

#include <atomic>
#include <cstdint>

#include "Model.h"
#include "Random.h"

namespace quorvel::lives {

NetCMEventCallback callback_of(int user);

// What the callbacks of a life work with, as long as it exists. A callback without one is objected to.
class Stage {
  public:
    Stage(Model& model, uint64_t seed);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // From now on, a receiver that is registered leaves.
    void let_everybody_leave() { leaving_ = true; }

    void hear(int user, const NetCMEvent& event);

  private:
    void act(const NetCMEvent& event);
    void act_as_nobody(Random& random);
    void act_as_receiver(Random& random, int32_t thread);
    void visit(Random& random, int number, bool stays);
    void leave_as_receiver(Random& random);
    bool may_stay() const { return !model_.has(kDeaths) && !model_.has(kSignals); }

    Model& model_;
    uint64_t seed_;
    std::atomic<uint64_t> calls_{0};
    std::atomic<int32_t> receiver_{0};  // the thread that is registered as the receiver
    std::atomic<bool> leaving_{false};
};

}  // namespace quorvel::lives
