// A thread that uses the library: it does one thing after another, at random.
#pragma once

#include <cstdint>

#include "Model.h"
#include "Random.h"

namespace quorvel::lives {

class User {
  public:
    User(Model& model, int number, Random random) : model_(model), number_(number), random_(random) {}

    // Does so many things.
    void live(int things);
    // Closes what it has, waits for the answers, and deregisters.
    void leave();

    // ---- One thing each. Nobody may do them too.
    void register_here();
    // Whether it is not registered any more.
    bool deregister();
    void open();
    void close(int32_t profile);
    void kill(int32_t profile);
    void look_up(int32_t profile);
    void clean_up();
    void ask();
    bool is_registered() const { return model_.is_registered(number_); }
    std::vector<int32_t> held() const { return model_.held_profiles(number_); }
    int32_t any_profile() { return random_.between(1, kProfiles); }
    Random& random() { return random_; }

  private:
    void act();
    void rest();
    void leave_or_stay();
    void open_default();
    // Rather one that it has.
    int32_t some_profile();

    Model& model_;
    int number_;
    Random random_;
};

}  // namespace quorvel::lives
