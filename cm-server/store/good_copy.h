// The good copy of the database, FILE.good, which is renewed while the server runs.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "events.h"
#include "store/store.h"

namespace quorvel::cm {

// Renews the copy a while after a change: often enough that little is lost, and no more often than that.
// Another thread does it over a connection of its own, so that no client waits for a large database.
class GoodCopy : private StoreChanges {
  public:
    GoodCopy(event_base* base, Store& store, std::chrono::milliseconds after);
    // Waits for the copy that is being made. What has changed since is the store's own last copy.
    ~GoodCopy();
    GoodCopy(const GoodCopy&) = delete;
    GoodCopy& operator=(const GoodCopy&) = delete;

    void use(std::chrono::milliseconds after) { after_ = after; }

  private:
    void on_change() override;
    void renew();
    void look_whether_done();

    Store& store_;
    std::chrono::milliseconds after_;
    Timer due_;
    Timer look_;
    bool changed_ = false;
    std::atomic<bool> done_ = false;
    std::string failure_;  // of the other thread, until it has been joined
    std::thread worker_;
};

}  // namespace quorvel::cm
