// A socket that listens on a path, and notices when somebody takes the path away from it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "events.h"
#include "log.h"
#include "socket_path.h"

namespace quorvel::cm {

// Who may connect. The kernel asks for the right to write.
inline constexpr mode_t kEveryUser = 0666;
inline constexpr mode_t kOwnerOnly = 0600;

// Whoever has removed or replaced the socket is told in the log, as an error. The path is taken again as soon
// as it is free; what somebody else has put there is left alone, and those who are connected notice nothing.
// When the system lets nobody in, who waits does so until it does; it is tried again after a while.
class ListeningSocket {
  public:
    // Throws SocketPathError.
    ListeningSocket(event_base* base, const std::string& path, mode_t mode,
                    std::function<void(AcceptedSocket)> accept);
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    const std::string& path() const { return path_; }

  private:
    void listen();
    void watch();
    void look();
    void take_back();
    void rest();

    event_base* base_;
    std::string path_;
    mode_t mode_;
    std::function<void(AcceptedSocket)> accept_;
    Listener listener_;
    // Goes before the listener: as long as that lives, nobody else's socket can have the same number.
    std::unique_ptr<SocketPath> place_;
    std::string obstacle_;
    log::Sparing trouble_;
    Timer rested_;
    Timer again_;
    FileWatch watch_;
};

}  // namespace quorvel::cm
