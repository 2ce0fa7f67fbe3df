// What brings a connection up, and tells what becomes of it.
#pragma once

#include <cstdint>

#include "config/config.h"
#include "protocol/message.h"
#include "protocol/status.h"

namespace quorvel::cm {

class BearerEvents {
  public:
    virtual void on_up(uint32_t call, const Addresses& addresses) = 0;
    virtual void on_refused(uint32_t call, Reason reason) = 0;
    virtual void on_suspended(uint32_t call) = 0;
    virtual void on_resumed(uint32_t call) = 0;
    virtual void on_changed(uint32_t call, const Addresses& addresses) = 0;
    virtual void on_ended(uint32_t call, Reason reason) = 0;
    // The bearer itself has failed, and nothing more will come of the call.
    virtual void on_failed(uint32_t call) = 0;

  protected:
    ~BearerEvents() = default;
};

class Bearer {
  public:
    virtual ~Bearer() = default;
    // Reports the outcome later, never from within this call.
    virtual void connect(uint32_t call, const Network& network) = 0;
    // Nothing is reported about the call any more.
    virtual void disconnect(uint32_t call) = 0;
};

}  // namespace quorvel::cm
