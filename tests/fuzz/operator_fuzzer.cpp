// What an operator gives the server: the input is a file, behind a byte that says which, or a line of
// commands.
#include <sys/mman.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "Fuzz.h"
#include "config/config.h"
#include "control/client.h"
#include "control/commands.h"
#include "control/control.h"
#include "control/scenario.h"
#include "control/trouble.h"
#include "control/vocabulary.h"
#include "log.h"
#include "record/reader.h"

using namespace quorvel::cm;

namespace {

// A file that is nowhere.
class File {
  public:
    File(const uint8_t* data, size_t size) : fd_(memfd_create("input", MFD_CLOEXEC)) {
        QV_FUZZ_EXPECT(fd_ >= 0 && write(fd_, data, size) == static_cast<ssize_t>(size));
    }
    ~File() { close(fd_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

class NoBearer : public Bearer {
  public:
    void connect(uint32_t, const Network&) override {}
    void disconnect(uint32_t) override {}
};

// A server's state with a call that is up, and nobody connected.
struct State {
    State() {
        log::set_level(log::Level::kError);
        calls.use(bearer);
        const auto profile = store.connection(store.default_id().value());
        calls.start(1, *profile);
        calls.on_up(0, {"lo", {}, {}});
    }
    Services services() {
        return {clients, calls, store, settings, statistics, networks, interfaces, config.limits};
    }

    Config config = built_in_config();
    NoBearer bearer;
    Interfaces interfaces;
    Clients clients{10};
    Statistics statistics{interfaces};
    Calls calls{config, clients, statistics};
    Store store{":memory:", config.profiles};
    Networks networks{config, store, interfaces, [](const Network&) { return NetworkStatus::kDown; }};
    Settings settings;
    Faults faults;
};

void execute(const std::string& line) {
    State state;
    try {
        const nlohmann::json command = checked_command(nlohmann::json::parse(line));
        const Trouble trouble{state.clients, state.faults, [](std::chrono::milliseconds) {}};
        if (!execute_trouble(trouble, command))
            execute_command(state.services(), command);
    } catch (const nlohmann::json::exception&) {
    } catch (const ControlError& error) {
        QV_FUZZ_EXPECT(error.what()[0] != '\0');
    }
}

// A file is good, or its fault is said in the file's own words.
template <class Error, class Read>
void read_file(Read read) {
    try {
        read();
    } catch (const Error& error) {
        QV_FUZZ_EXPECT(std::string(error.what()).find("/proc/self/fd/") != std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 4 == 0) {
        execute(text);
        return 0;
    }
    const File file(data + 1, size - 1);
    if (data[0] % 4 == 1)
        read_file<ConfigError>([&] { read_config(file.path()); });
    else if (data[0] % 4 == 2)
        read_file<AskError>([&] { read_steps(file.path()); });
    else
        read_file<RecordError>([&] { read_record(file.path()); });
    return 0;
}
