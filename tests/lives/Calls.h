// The server's calls: which connection a profile gets, what becomes of it, and what is to be pushed about
// that.
#pragma once

#include <map>

#include "Model.h"
#include "Outbox.h"
#include "Random.h"

namespace quorvel::lives {

class Calls {
  public:
    Calls(Model& model, Random& random, Outbox& outbox) : model_(model), random_(random), outbox_(outbox) {}

    // ---- Requests. The record that answers a start.
    wire::Record start(int32_t profile);
    void stop(uint32_t id, int32_t profile);
    void kill(int32_t profile);
    // The profiles that are active.
    std::vector<int32_t> active() const;

    // Time goes by: what is coming up may be up, and the network does what it likes. When everything is to
    // come to rest, the one surely and the other not; nor when it may not act.
    void tick(bool to_rest, bool network_may_act);
    bool is_anything_starting() const;
    // With the link, all of them are gone.
    void forget() { awaited_.clear(); }

    void push_broadcast();

  private:
    using Word = Pushed::What;

    template <class Body>
    void for_each_live(Body body);
    const Connection* find_live(int32_t profile) const;
    const Connection* sharable(int32_t profile) const;
    std::optional<uint32_t> free_id(int32_t profile);
    bool is_free(uint32_t id, int32_t profile) const;
    bool has_to_say_first(const Connection& ended, int32_t profile) const;
    unsigned keys_of(const Connection& connection) const;
    void push_about(const Connection& connection, uint32_t code, Pushed pushed);
    void push_up(const Connection& connection);
    void come_up(const Connection& connection);
    void refuse(const Connection& connection);
    void let_the_network_act(const Connection& connection);
    void suspend_or_resume(const Connection& connection);
    void change_address(const Connection& connection);
    void end(const Connection& connection, Pushed pushed);
    void is_ended(const Connection& connection, const char* why);
    Pushed refused_somehow(Word what, int32_t profile);
    void push_noise();

    Model& model_;
    Random& random_;
    Outbox& outbox_;
    std::map<int, PerProfile<bool>> awaited_;  // start responses, by connection
};

}  // namespace quorvel::lives
