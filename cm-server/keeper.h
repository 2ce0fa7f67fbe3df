// Owns what may end while it is still on the call stack: it goes when the loop comes round.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "events.h"

namespace quorvel::cm {

template <class T>
class Keeper {
  public:
    explicit Keeper(event_base* base) : bury_(base, [this] { ended_.clear(); }) {}

    T& add(std::unique_ptr<T> object) {
        const T* key = object.get();
        return *living_.emplace(key, std::move(object)).first->second;
    }

    // Nothing happens when it has been removed before.
    void remove(const T& object) {
        const auto found = living_.find(&object);
        if (found == living_.end())
            return;
        // Moved over as it is: to end somebody takes no memory.
        ended_.insert(living_.extract(found));
        bury_.start(std::chrono::milliseconds(0));
    }

    // As they are now; some may be removed while one goes through them.
    std::vector<T*> all() const {
        std::vector<T*> result;
        for (const auto& [key, object] : living_)
            result.push_back(object.get());
        return result;
    }

  private:
    std::map<const T*, std::unique_ptr<T>> living_;
    std::map<const T*, std::unique_ptr<T>> ended_;
    Timer bury_;
};

}  // namespace quorvel::cm
