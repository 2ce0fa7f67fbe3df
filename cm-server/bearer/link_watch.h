// Hears from the kernel when an interface or an address has changed.
#pragma once

#include <functional>

#include "bearer/interfaces.h"
#include "events.h"

namespace quorvel::cm {

class LinkWatch {
  public:
    // `changed` runs from the loop, once for all that has been taken in since.
    LinkWatch(event_base* base, Interfaces& interfaces, std::function<void()> changed);
    LinkWatch(const LinkWatch&) = delete;
    LinkWatch& operator=(const LinkWatch&) = delete;
    ~LinkWatch();

  private:
    void read();

    Interfaces& interfaces_;
    std::function<void()> changed_;
    Event readable_;
    Timer again_;
};

}  // namespace quorvel::cm
