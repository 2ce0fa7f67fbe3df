// Which connections this server has had NetworkManager activate, noted for the one that comes after a kill.
#pragma once

#include <set>
#include <string>

namespace quorvel::cm {

// What is active has a path that NetworkManager gives no second time while it runs: who activates the same
// connection again, a user or NetworkManager itself, gets another one. So a path that was noted under this
// very NetworkManager is ours, and nothing else is.
class Activations {
  public:
    // What is noted in this file is read by the next server. Without a name nothing is.
    explicit Activations(std::string file) : file_(std::move(file)) {}

    // NetworkManager is there, by a name that no other has had. Gives what a server before, or this one
    // before it lost the bus, has left active.
    std::set<std::string> begin(const std::string& manager);
    void add(const std::string& active);
    void remove(const std::string& active);
    bool has(const std::string& active) const { return there_ && active_.contains(active); }
    // NetworkManager has gone, and whatever it takes up again is nobody's; or only the message bus is lost,
    // and the same NetworkManager begins again with what there was.
    void end() { there_ = false; }

  private:
    std::set<std::string> read(const std::string& manager) const;
    void write() const;

    std::string file_;
    bool there_ = false;
    std::string manager_;  // the last one
    std::set<std::string> active_;
};

}  // namespace quorvel::cm
