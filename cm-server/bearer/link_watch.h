// Hears from the kernel when an interface or an address has changed.
#pragma once

#include <libmnl/libmnl.h>

#include <functional>
#include <memory>

#include "events.h"

namespace quorvel::cm {

class LinkWatch {
  public:
    // Throws std::runtime_error when the kernel does not let us listen.
    LinkWatch(event_base* base, std::function<void()> changed);
    LinkWatch(const LinkWatch&) = delete;
    LinkWatch& operator=(const LinkWatch&) = delete;

  private:
    void read();

    std::function<void()> changed_;
    std::unique_ptr<mnl_socket, Freed<mnl_socket_close>> socket_;
    Event readable_;
};

}  // namespace quorvel::cm
