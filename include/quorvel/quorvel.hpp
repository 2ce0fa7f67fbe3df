/* Connections, profiles and names for C++: objects over NetCM.h, NetPM.h and NetDNS.h. C++17 and up, header only.
 *
 * The library knows the thread that has registered as its user; a Registration therefore keeps a thread of its own, on
 * which all its requests are made, so that every object of this header may be used, moved and destroyed on any thread.
 * What the library tells on threads of its own is only copied there: handlers run one at a time on a second thread of
 * their Registration, while nothing of the library's is held, and neither waits nor futures depend on them. So a
 * handler may take its time, throw, ask, wait, and close or destroy whatever it likes, its own connection and its
 * Registration included.
 *
 * Rules that hold for everything in this header:
 *
 *  1. Errors. A function whose last parameter is an OnError throws an Error, a std::system_error; given a
 *     std::error_code in that place it sets it instead, to none on success, and gives an empty result. Codes are a
 *     Status (category(): the statuses of NetCM.h, and any other word of the server unchanged), a NameError, or the
 *     system's: std::errc::timed_out for a limit that has passed, std::errc::invalid_argument for a text that its field
 *     has no room for. What memory runs out for throws std::bad_alloc. Destructors and moves never throw.
 *  2. Limits are times from the call on; `forever` is none. When one has passed, what was asked goes on without its
 *     asker: its answer is dropped, and a connection that comes too late is closed.
 *  3. Threads. One object may be used by several threads at a time; only its move and its destruction want it for
 *     themselves. The threads of a Registration block the process's signals: none interrupts a request. A thread that
 *     is cancelled (pthread_cancel) while it waits in one of these functions is cancelled behind it.
 *  4. Handlers. An event is handed to its handler once, in the order of arrival. After on_event(), the destructor and
 *     end() have returned the handler before does not run any more; called by the handler itself they do not wait for
 *     it, and it is the last run. A handler that throws is no harm: the first exception of a Registration is kept,
 *     and thrown by the next wait of its owner (next_event, wait_open, wait_ended) or rethrow().
 *  5. Ends. A connection ends once, and says how: closed, refused, stopped by the network, or with its server,
 *     whose end is Status::reregister_failed. The Registration outlives the server: its next request finds the new one.
 *  6. Moved from, or in the child of a fork, an object is empty: its functions give Status::not_registered, its
 *     destructor does nothing. A child makes a Registration of its own; the parent notices nothing.
 *  7. The end of the process. Objects may be static: nothing of this header is destroyed before them. A library that
 *     is unloaded must have destroyed its Registrations, and end() must have given no error.
 *  8. Out of a callback that was given to the C interface, call the C interface: a Registration would wait for what
 *     that callback holds. Both may be used in one process.
 *
 * Without exceptions (-fno-exceptions) an error that nobody has given a std::error_code for ends the process. */
#ifndef QUORVEL_QUORVEL_HPP
#define QUORVEL_QUORVEL_HPP

#include <arpa/inet.h>
#include <pthread.h>
#include <quorvel/NetCM.h>
#include <quorvel/NetDNS.h>
#include <quorvel/NetPM.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#if defined(__cpp_exceptions)
#define QUORVEL_TRY try
#define QUORVEL_CATCH_ALL catch (...)
#else
#define QUORVEL_TRY if constexpr (true)
#define QUORVEL_CATCH_ALL else
#endif

namespace quorvel {
inline namespace v1 {

/* ---------------------------------------------------------------------------------------------------------------
 * Errors */

/* The statuses of NetCM.h by name, and those of the server that it gives for profiles. A code may hold any other word
 * of the server as well. */
enum class Status : int {
    success = NETCM_SUCCESS,
    failure = NETCM_ERR_FAILURE,
    reregister_failed = NETCM_ERR_REREGISTER_FAILED, /* the server has gone */
    already_registered = NETCM_ERR_ALREADY_REGISTERED,
    reregister_retry_exhausted = NETCM_ERR_REREGISTER_RETRY_EXHAUSTED, /* no server was there */
    no_free_entry = NETCM_ERR_NO_FREE_ENTRY,
    not_registered = NETCM_ERR_NOT_REGISTERED,
    invalid_profile = NETCM_ERR_INVALID_PROFILE,
    not_active = NETCM_ERR_NOT_ACTIVE,
    already_exists = NETCM_ERR_ALREADY_EXISTS,
    closing = NETCM_ERR_CLOSING,
    call_closing = NETCM_ERR_CALL_CLOSING,
    max_limit = NETCM_ERR_MAX_LIMIT,
    no_free_kill_entry = NETCM_ERR_NO_FREE_KILL_ENTRY,
    no_free_tunnel_entry = NETCM_ERR_NO_FREE_TUNNEL_ENTRY,
    invalid_param = NETCM_ERR_INVALID_PARAM,
    refused_with_reason = 21, /* Error::reason() and the events' reason hold the server's reason word */
    killed = 22               /* somebody has killed the connection */
};

/* Why a name has not been resolved. */
enum class NameError : int {
    refused = 1,  /* not asked: no name, no open connection, or ten requests of the process under way */
    not_found = 2 /* the connection's DNS servers do not know it, or do not answer */
};

namespace detail {

class Category final : public std::error_category {
  public:
    const char *name() const noexcept override { return "quorvel"; }
    std::string message(int value) const override {
        switch (static_cast<Status>(value)) {
            case Status::success:
                return "success";
            case Status::failure:
                return "the exchange with the CM server failed, or memory ran out";
            case Status::reregister_failed:
                return "the link to the CM server is broken and could not be repaired";
            case Status::already_registered:
                return "the calling thread is already registered";
            case Status::reregister_retry_exhausted:
                return "the CM server could not be reached in three attempts";
            case Status::no_free_entry:
                return "16 threads are registered already";
            case Status::not_registered:
                return "not registered with the CM server, or without a connection";
            case Status::invalid_profile:
                return "invalid profile id";
            case Status::not_active:
                return "no such connection";
            case Status::already_exists:
                return "the registration already has this connection, or still has one";
            case Status::closing:
                return "this connection's kill has been asked for already";
            case Status::call_closing:
                return "the connection is being closed";
            case Status::max_limit:
                return "no room for another thread or profile on this connection";
            case Status::no_free_kill_entry:
                return "four kills are pending already";
            case Status::no_free_tunnel_entry:
                return "twenty tunnel requests are pending already";
            case Status::invalid_param:
                return "an argument is out of range";
            case Status::refused_with_reason:
                return "the CM server has refused or ended it with a reason";
            case Status::killed:
                return "the connection has been killed";
        }
        return "status " + std::to_string(value) + " of the CM server";
    }
};

class NameCategory final : public std::error_category {
  public:
    const char *name() const noexcept override { return "quorvel names"; }
    std::string message(int value) const override {
        return static_cast<NameError>(value) == NameError::refused
                   ? "no host name, no open connection, or too many requests at a time"
                   : "no DNS server of the connection knows the name, or none answers";
    }
};

/* Never destroyed: errors are compared until the last static object has gone. */
template <class T>
const T &the_only() noexcept {
    static const T &instance = *new T;
    return instance;
}

}  // namespace detail

inline const std::error_category &category() noexcept {
    return detail::the_only<detail::Category>();
}
inline const std::error_category &name_category() noexcept {
    return detail::the_only<detail::NameCategory>();
}
inline std::error_code make_error_code(Status status) noexcept {
    return {static_cast<int>(status), category()};
}
inline std::error_code make_error_code(NameError error) noexcept {
    return {static_cast<int>(error), name_category()};
}

/* What is thrown: the code, and the server's reason word where it has given one (Status::refused_with_reason). */
class Error : public std::system_error {
  public:
    Error(std::error_code code, const std::string &what, std::optional<std::int32_t> reason = std::nullopt)
        : std::system_error(code, what), reason_(reason) {}
    std::optional<std::int32_t> reason() const noexcept { return reason_; }

  private:
    std::optional<std::int32_t> reason_;
};

/* Where an error goes: thrown, or into a std::error_code (rule 1). Made by leaving the argument away, or of the code. */
class OnError {
  public:
    OnError() noexcept = default;
    OnError(std::error_code &code) noexcept : code_(&code) { code.clear(); }

    /* For the functions of this header. */
    void operator()(std::error_code code, const std::string &what,
                    std::optional<std::int32_t> reason = std::nullopt) const {
        if (code_ != nullptr) {
            *code_ = code;
        } else {
#if defined(__cpp_exceptions)
            throw Error(code, what, reason);
#else
            static_cast<void>(what);
            static_cast<void>(reason);
            std::abort();
#endif
        }
    }

  private:
    std::error_code *code_ = nullptr;
};

/* Time limits. */
using Limit = std::chrono::milliseconds;
inline constexpr Limit forever = Limit::max();
inline constexpr Limit open_limit = std::chrono::seconds(60);
inline constexpr Limit close_limit = std::chrono::seconds(10); /* of destructors as well */

/* ---------------------------------------------------------------------------------------------------------------
 * What connections are made of */

/* The profile id that stands for the server's default profile. */
inline constexpr std::int32_t default_profile = 0;

enum class Interface : std::uint32_t { packet_data = NETCM_IFACE_PDP, wifi = NETCM_IFACE_WIFI };

/* An IPv4 address; 0.0.0.0 is none. */
class Address {
  public:
    Address() noexcept = default;
    explicit Address(in_addr address) noexcept : address_(address) {}
    /* Of the text "192.0.2.1"; nothing when it is none. */
    static std::optional<Address> parse(const std::string &text) {
        in_addr address{};
        return inet_pton(AF_INET, text.c_str(), &address) == 1 ? std::optional<Address>(address) : std::nullopt;
    }

    std::string to_string() const {
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &address_, text, sizeof text);
        return text;
    }
    /* In network byte order, as sockets take it. */
    in_addr get() const noexcept { return address_; }
    explicit operator bool() const noexcept { return address_.s_addr != 0; }

    friend bool operator==(const Address &a, const Address &b) noexcept {
        return a.address_.s_addr == b.address_.s_addr;
    }
    friend bool operator!=(const Address &a, const Address &b) noexcept { return !(a == b); }

  private:
    in_addr address_{};
};

/* The details of a connection. */
struct ConnectionInfo {
    std::int32_t profile = 0;
    std::string interface; /* the network interface, such as "wwan0" */
    Address address;       /* the local address */
    std::vector<Address> dns;
    std::optional<NetCMAddr> extra1; /* two further addresses, whose meaning is the server's */
    std::optional<NetCMAddr> extra2;
};

/* How something has come out. `error` is none for success; `reason` is the server's reason word where it has one. */
struct Outcome {
    std::int32_t profile = 0;
    std::error_code error;
    std::optional<std::int32_t> reason;
};

/* Events of a connection. */
struct Opened {
    ConnectionInfo info;
};
struct Refused : Outcome {};   /* the open has failed */
struct Closed : Outcome {};    /* after close() */
struct Killed : Outcome {};    /* after kill() */
struct Stopped : Outcome {};   /* by the network, by somebody's kill (Status::killed), or with the server */
struct Suspended : Outcome {}; /* nothing passes */
struct Resumed : Outcome {};
struct AddressChanged {
    ConnectionInfo info;
};
/* Events of a Registration. */
struct TunnelData {
    std::uint32_t word = 0; /* the server's */
    std::vector<std::byte> data;
};
struct NetworkChanged {
    std::array<std::int32_t, 2> states{}; /* the server's */
};
using Event = std::variant<Opened, Refused, Closed, Killed, Stopped, Suspended, Resumed, AddressChanged, TunnelData,
                           NetworkChanged>;

using Handler = std::function<void(const Event &)>;

/* A visitor of functions, for std::visit: std::visit(Visitor{[](const Stopped&) {...}, [](const auto&) {}}, event). */
template <class... Functions>
struct Visitor : Functions... {
    using Functions::operator()...;
};
template <class... Functions>
Visitor(Functions...) -> Visitor<Functions...>;

/* A resolved host. */
struct Host {
    std::string name;
    std::vector<std::string> aliases;
    std::vector<Address> addresses;
};

/* ---------------------------------------------------------------------------------------------------------------
 * Inside */

namespace detail {

using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;

inline std::error_code code_of(std::uint32_t status) noexcept {
    return status == NETCM_SUCCESS ? std::error_code() : std::error_code(static_cast<int>(status), category());
}
inline std::error_code code_of(std::errc error) noexcept {
    return std::make_error_code(error);
}

/* A moment, or none; a limit beyond what a clock can add up is none as well. */
class Deadline {
  public:
    explicit Deadline(Limit limit) {
        if (limit < std::chrono::hours(24 * 365 * 10))
            moment_ = Clock::now() + std::max(limit, Limit::zero());
    }
    /* False when it has passed first. */
    template <class Condition>
    bool wait(std::condition_variable &changed, Lock &lock, Condition condition) const {
        if (moment_)
            return changed.wait_until(lock, *moment_, condition);
        changed.wait(lock, condition);
        return true;
    }

  private:
    std::optional<Clock::time_point> moment_;
};

/* A thread that is cancelled while it waits is cancelled behind it, as in the library itself: the wait lends its stack
 * to the thread that works for it. */
class NotCancelled {
  public:
    NotCancelled() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NotCancelled() { pthread_setcancelstate(before_, nullptr); }
    NotCancelled(const NotCancelled &) = delete;
    NotCancelled &operator=(const NotCancelled &) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

/* Starts a detached thread that leaves the process's signals to others. 0, or the system's error number. */
inline int start_thread(void *(*body)(void *), void *argument) noexcept {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&all, fault);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, body, argument);
    if (error == 0)
        pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

inline Address address_of(const NetCMAddr &from) noexcept {
    in_addr address{};
    std::memcpy(&address, from.Addr, sizeof address);
    return Address(address);
}

inline ConnectionInfo info_of(const NetCMConnInfo &from) {
    ConnectionInfo info;
    info.profile = from.ProfileId;
    info.interface.assign(from.IfaceName, strnlen(from.IfaceName, sizeof from.IfaceName));
    info.address = address_of(from.IpAddr);
    for (std::int32_t i = 0; i < std::min<std::int32_t>(from.DnsCount, NETCM_MAX_DNS); ++i)
        if (const Address server = address_of(from.DnsAddr[i]))
            info.dns.push_back(server);
    if (from.HasOptAddr1 != 0)
        info.extra1 = from.OptAddr1;
    if (from.HasOptAddr2 != 0)
        info.extra2 = from.OptAddr2;
    return info;
}

template <class T>
std::vector<std::byte> bytes_of(const T *from, std::size_t length) {
    std::vector<std::byte> bytes(from == nullptr ? 0 : length);
    if (!bytes.empty())
        std::memcpy(bytes.data(), from, bytes.size());
    return bytes;
}

/* What the library has answered, or an event has said. */
struct Result {
    std::uint32_t status = NETCM_SUCCESS;
    std::optional<std::int32_t> reason;

    std::error_code code() const noexcept { return code_of(status); }
};

inline Result result_of(const NetCMEvent &event) noexcept {
    Result result{static_cast<std::uint32_t>(event.Result), std::nullopt};
    if (result.status == static_cast<std::uint32_t>(Status::refused_with_reason) && event.Data != nullptr)
        result.reason = *static_cast<const std::int32_t *>(event.Data);
    return result;
}

template <class T>
T outcome_of(const NetCMEvent &event) {
    const Result result = result_of(event);
    T outcome;
    outcome.profile = event.ProfileId;
    outcome.error = result.code();
    outcome.reason = result.reason;
    return outcome;
}

/* Events that wait for a handler or for somebody who asks. An owner who does neither does not cost more and more: the
 * oldest go first. */
struct Inbox {
    static constexpr std::size_t kRoom = 1024;

    struct Numbered {
        std::uint64_t number;
        Event event;
    };
    std::deque<Numbered> waiting;
    std::shared_ptr<const Handler> handler;
    std::uint64_t lost = 0;
};

/* One use of a profile, from its open to its end. */
struct Use {
    enum class State { opening, open, suspended, closing, ended };

    std::int32_t profile = 0; /* 0: the default one, as long as nobody has said which that is */
    State state = State::opening;
    bool accepted = false; /* by the server, or joined */
    bool answered = false; /* its open response is there */
    bool close_wanted = false;
    bool close_asked = false; /* of the library, with success */
    bool close_failed = false;
    bool killing = false;
    Result close_result; /* of the request */
    Result end;
    NetCMConnInfo info{};
    Inbox inbox;

    bool has_ended() const noexcept { return state == State::ended; }
    bool wants_to_be_closed() const noexcept {
        return accepted && profile != 0 && close_wanted && !close_asked && !close_failed && !killing && !has_ended();
    }
};
using UsePtr = std::shared_ptr<Use>;

/* A request whose answer comes as an event: a kill, by its profile, or tunnel data, by the server's id. */
struct Pending {
    std::uint32_t key = 0;
    bool done = false;
    Result result;
    std::vector<std::byte> data;
};
using PendingPtr = std::shared_ptr<Pending>;

class Core;

/* The library hands a callback nothing of its registrant's: there is one callback for each that there can be. */
inline constexpr std::size_t kSlots = NETCM_MAX_THREADS;
inline std::atomic<Core *> slots[kSlots]{};

/* What the objects of one registration share. Whoever of them, and of its two threads, is last takes it along. */
class Core : public std::enable_shared_from_this<Core> {
  public:
    using Ptr = std::shared_ptr<Core>;

    static Ptr make(Result &result, std::error_code &system) {
        const Ptr core(new Core, [](Core *unused) {
            /* In the child of a fork its locks may be in anybody's hands. */
            if (unused->is_ours())
                delete unused;
        });
        if (!core->take_slot()) {
            result.status = NETCM_ERR_NO_FREE_ENTRY;
            return nullptr;
        }
        if (const int error = core->start(&Core::request_thread); error != 0) {
            core->leave_slot();
            system = std::error_code(error, std::generic_category());
            return nullptr;
        }
        const NotCancelled all_the_time;
        Lock lock(core->mutex_);
        core->changed_.wait(lock, [&] { return core->registered_ || core->gone_; });
        result = core->registration_;
        return core->registered_ ? core : nullptr;
    }

    /* False in the child of a fork. */
    bool is_ours() const noexcept { return process_ == getpid(); }
    bool is_usable() {
        if (!is_ours())
            return false;
        const Lock lock(mutex_);
        return !leaving_;
    }

    /* Makes a request on the registered thread and waits for it. */
    template <class Body>
    Result ask(Body body) {
        if (!is_ours())
            return {NETCM_ERR_NOT_REGISTERED, std::nullopt};
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        if (leaving_)
            return {NETCM_ERR_NOT_REGISTERED, std::nullopt};
        Result result;
        bool done = false;
        tasks_.push_back([&] {
            Result found;
            QUORVEL_TRY {
                found = with_reason(body());
            }
            QUORVEL_CATCH_ALL {
                found.status = NETCM_ERR_FAILURE; /* memory ran out */
            }
            const Lock again(mutex_);
            result = found;
            done = true;
        });
        changed_.notify_all();
        changed_.wait(lock, [&] { return done; });
        return result;
    }

    /* ---- connections */

    /* Asks for a connection; nobody waits. Null when the registration is not there any more. */
    UsePtr start_open(std::int32_t profile) {
        if (!is_ours())
            return nullptr;
        const UsePtr use = std::make_shared<Use>();
        use->profile = profile;
        const Lock lock(mutex_);
        if (leaving_)
            return nullptr;
        uses_.reserve(uses_.size() + tasks_.size() + 1);
        tasks_.push_back([this, use, profile] { open_now(use, profile); });
        changed_.notify_all();
        return use;
    }

    /* Until the server has accepted, or until the connection is open; the error otherwise. */
    Result wait_accepted(const UsePtr &use, const Deadline &deadline, std::error_code &system) {
        return wait_for(use, deadline, system, [&] { return use->accepted; });
    }
    Result wait_open(const UsePtr &use, const Deadline &deadline, std::error_code &system) {
        return wait_for(use, deadline, system, [&] { return use->answered; });
    }
    bool wait_ended(const UsePtr &use, const Deadline &deadline) {
        if (!is_ours())
            return true;
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        return deadline.wait(changed_, lock, [&] { return use->has_ended(); });
    }
    /* The same for an owner, who is told what a handler has thrown. */
    bool wait_ended_or_throw(const UsePtr &use, const Deadline &deadline) {
        if (!is_ours())
            return true;
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        deadline.wait(changed_, lock, [&] { return use->has_ended() || failure_; });
        throw_failure(lock);
        return use->has_ended();
    }

    void want_close(const UsePtr &use) noexcept {
        if (!is_ours())
            return;
        const Lock lock(mutex_);
        use->close_wanted = true;
        use->close_failed = false;
        changed_.notify_all();
    }
    Result close(const UsePtr &use, const Deadline &deadline, std::error_code &system) {
        if (!is_ours())
            return {NETCM_ERR_NOT_REGISTERED, std::nullopt};
        want_close(use);
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        deadline.wait(changed_, lock, [&] {
            return use->has_ended() || (use->close_failed && !may_close_again(use->close_result.status));
        });
        if (use->has_ended())
            return {};
        if (!use->close_failed)
            system = code_of(std::errc::timed_out);
        return use->close_result;
    }

    /* Of a connection's own use, or of a profile whether it is used here or not. The killer's use ends with the
     * request's success, whatever becomes of the kill. */
    Result kill(std::int32_t profile, UsePtr own, const Deadline &deadline, std::error_code &system) {
        const PendingPtr kill = std::make_shared<Pending>();
        const Result asked = ask([&] {
            {
                const Lock lock(mutex_);
                if (own ? own->has_ended() || own->profile == default_profile : profile == default_profile)
                    return std::uint32_t{NETCM_ERR_NOT_ACTIVE};
                profile = own ? own->profile : profile;
                own = own ? own : use_of(profile, false, false);
                kill->key = static_cast<std::uint32_t>(profile);
                kills_.push_back(kill);
                if (own)
                    own->killing = true;
            }
            const std::uint32_t status = NetCMConnectionKill(profile);
            const Lock lock(mutex_);
            if (status != NETCM_SUCCESS) {
                forget(kills_, kill);
                if (own)
                    own->killing = false;
            }
            return status;
        });
        if (asked.status != NETCM_SUCCESS)
            return asked;
        const Result result = wait_for_answer(kills_, kill, deadline, system);
        if (own) {
            const Lock lock(mutex_);
            end_use(own, result);
            changed_.notify_all();
        }
        return result;
    }

    /* ---- tunnel data */

    Result tunnel(const void *data, std::size_t length, std::int32_t param, const Deadline &deadline,
                  std::error_code &system, std::vector<std::byte> &answer) {
        if (length > UINT32_MAX)
            return {NETCM_ERR_INVALID_PARAM, std::nullopt};
        const PendingPtr tunnel = std::make_shared<Pending>();
        const Result asked = ask([&] {
            {
                /* The request's id is not known before its answer may be there: whose it is, is asked below. */
                const Lock lock(mutex_);
                tunnels_.reserve(tunnels_.size() + 1);
                is_tunnelling_ = true;
            }
            NetCMTunnelData request{param, 0, static_cast<std::uint32_t>(length), const_cast<void *>(data)};
            const std::uint32_t status = NetCMTunnelRequest(&request);
            const Lock lock(mutex_);
            is_tunnelling_ = false;
            if (status == NETCM_SUCCESS) {
                tunnel->key = request.RequestId;
                tunnels_.push_back(tunnel);
                for (const PendingPtr &early : early_tunnels_)
                    answer_all(tunnels_, early->key, early->result, &early->data);
            }
            early_tunnels_.clear();
            return status;
        });
        if (asked.status != NETCM_SUCCESS)
            return asked;
        const Result result = wait_for_answer(tunnels_, tunnel, deadline, system);
        if (!system)
            answer = std::move(tunnel->data);
        return result;
    }

    /* ---- events */

    Inbox &inbox() noexcept { return inbox_; }

    /* Nothing when the limit has passed, or when nothing will come any more. */
    std::optional<Event> next_event(Inbox &box, const UsePtr &use, const Deadline &deadline) {
        if (!is_ours())
            return std::nullopt;
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        deadline.wait(changed_, lock, [&] {
            return !box.waiting.empty() || box.handler || leaving_ || failure_ || (use && use->has_ended());
        });
        throw_failure(lock);
        if (box.handler || box.waiting.empty())
            return std::nullopt;
        std::optional<Event> event(std::move(box.waiting.front().event));
        box.waiting.pop_front();
        return event;
    }

    /* The open response that open() has waited for is no news. */
    void drop_opened(const UsePtr &use) {
        const Lock lock(mutex_);
        auto &waiting = use->inbox.waiting;
        if (!waiting.empty() && std::holds_alternative<Opened>(waiting.front().event))
            waiting.pop_front();
    }

    /* The error of starting the thread that handlers run on. */
    int listen(const UsePtr &use, Inbox &box, Handler handler) {
        if (!is_ours())
            return 0;
        std::shared_ptr<const Handler> next;
        if (handler)
            next = std::make_shared<const Handler>(std::move(handler));
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        if (next && use && std::find(listened_.begin(), listened_.end(), use) == listened_.end())
            listened_.push_back(use);
        if (next && !leaving_ && !has_event_thread_) {
            if (const int error = start(&Core::event_thread); error != 0) {
                stop_listening(use);
                return error;
            }
            has_event_thread_ = true;
        }
        box.handler.swap(next);
        if (!box.handler)
            stop_listening(use);
        changed_.notify_all();
        wait_until_not_running(lock, box);
        lock.unlock(); /* what the handler before has captured goes without a lock */
        return 0;
    }

    void rethrow() {
        if (!is_ours())
            return;
        Lock lock(mutex_);
        throw_failure(lock);
    }

    std::uint64_t lost(const Inbox &box) {
        if (!is_ours())
            return 0;
        const Lock lock(mutex_);
        return box.lost;
    }

    /* Reads something of a use. */
    template <class Read>
    auto look(Read read) {
        const Lock lock(mutex_);
        return read();
    }

    /* ---- the end */

    /* Closes what is open and deregisters. False when the limit has passed; then it goes on by itself. */
    bool leave(const Deadline &deadline) noexcept {
        if (!is_ours())
            return true;
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        leaving_ = true;
        for (const UsePtr &use : uses_) {
            use->close_wanted = true;
            use->close_failed = false;
        }
        changed_.notify_all();
        if (!is_event_thread())
            changed_.wait(lock, [&] { return running_ == nullptr; });
        drop_handlers(lock);
        return deadline.wait(changed_, lock, [&] { return gone_; });
    }

    /* On a thread of the library's, which may hold its lock: what has come is kept, and nobody is called. */
    void take(const NetCMEvent &event) noexcept {
        QUORVEL_TRY {
            const Lock lock(mutex_);
            sort(event);
            changed_.notify_all();
        }
        QUORVEL_CATCH_ALL {
            /* Only the mutex itself can have failed. */
        }
    }

  private:
    Core() = default;

    /* ---- slots */

    bool take_slot() noexcept {
        for (std::size_t i = 0; i < kSlots; ++i) {
            Core *holder = slots[i].load(std::memory_order_acquire);
            /* The slots of a parent are free in its child. */
            const bool is_free = holder == nullptr || !holder->is_ours();
            if (is_free && slots[i].compare_exchange_strong(holder, this, std::memory_order_acq_rel)) {
                slot_ = i;
                return true;
            }
        }
        return false;
    }
    void leave_slot() noexcept { slots[slot_].store(nullptr, std::memory_order_release); }

    template <std::size_t Slot>
    static void callback(NetCMEvent *event) {
        Core *const core = slots[Slot].load(std::memory_order_acquire);
        if (core != nullptr && event != nullptr && core->is_ours())
            core->take(*event);
    }
    template <std::size_t... Slot>
    static NetCMEventCallback callback_of(std::size_t slot, std::index_sequence<Slot...>) noexcept {
        constexpr NetCMEventCallback callbacks[] = {&callback<Slot>...};
        return callbacks[slot];
    }

    /* ---- the thread of the requests */

    int start(void (Core::*body)()) {
        struct Start {
            Ptr core;
            void (Core::*body)();
        };
        auto start = std::make_unique<Start>(Start{shared_from_this(), body});
        const int error = start_thread(
            [](void *argument) -> void * {
                const std::unique_ptr<Start> own(static_cast<Start *>(argument));
                ((*own->core).*(own->body))();
                return nullptr;
            },
            start.get());
        if (error == 0)
            static_cast<void>(start.release());
        return error;
    }

    void request_thread() noexcept {
        const std::uint32_t status = NetCMClientRegister(callback_of(slot_, std::make_index_sequence<kSlots>()));
        Lock lock(mutex_);
        registration_.status = status;
        registered_ = status == NETCM_SUCCESS;
        changed_.notify_all();
        if (registered_)
            serve(lock);
        leave_slot();
        leaving_ = true;
        while (!uses_.empty())
            end_use(UsePtr(uses_.front()), {NETCM_ERR_NOT_REGISTERED, std::nullopt});
        gone_ = true;
        changed_.notify_all();
    }

    void serve(Lock &lock) {
        for (;;) {
            const auto has_work = [&] { return !tasks_.empty() || leaving_ || to_close(); };
            if (!has_failed_close()) {
                changed_.wait(lock, has_work);
            } else if (!changed_.wait_for(lock, kBeforeNextClose, has_work)) {
                forget_failed_closes();
                continue;
            }
            if (!tasks_.empty()) {
                do_task(lock);
            } else if (const UsePtr use = to_close()) {
                close_now(use, lock);
            } else if (deregister(lock)) {
                return;
            }
        }
    }

    void do_task(Lock &lock) {
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
        changed_.notify_all();
    }

    UsePtr to_close() const {
        for (const UsePtr &use : uses_)
            if (use->wants_to_be_closed())
                return use;
        return nullptr;
    }

    void close_now(const UsePtr &use, Lock &lock) {
        const std::int32_t profile = use->profile;
        const Use::State before = std::exchange(use->state, Use::State::closing);
        use->close_asked = true;
        lock.unlock();
        const Result result = with_reason(NetCMConnectionClose(profile));
        lock.lock();
        use->close_result = result;
        if (result.status != NETCM_SUCCESS) {
            use->close_asked = false;
            use->close_failed = true;
            if (use->state == Use::State::closing)
                use->state = before;
        }
        changed_.notify_all();
    }

    /* A request that has come to nothing leaves the connection as it was, or the server has gone with it, and its end
     * is still to be told: it is asked for again, as long as it is wanted. */
    bool has_failed_close() const noexcept {
        return std::any_of(uses_.begin(), uses_.end(), [](const UsePtr &use) {
            return use->close_failed && may_close_again(use->close_result.status);
        });
    }
    void forget_failed_closes() noexcept {
        for (const UsePtr &use : uses_)
            use->close_failed = use->close_failed && !leaving_ && !may_close_again(use->close_result.status);
    }

    /* With connections that have not ended the library lets nobody go. */
    bool deregister(Lock &lock) {
        const std::uint64_t ends = ends_;
        lock.unlock();
        const std::uint32_t status = NetCMClientDeRegister();
        lock.lock();
        if (status != NETCM_ERR_ALREADY_EXISTS)
            return true;
        changed_.wait_for(lock, kBeforeNextClose, [&] { return ends_ != ends || to_close(); });
        forget_failed_closes();
        return false;
    }

    void open_now(const UsePtr &use, std::int32_t profile) {
        {
            const Lock lock(mutex_);
            uses_.push_back(use);
        }
        const Result result = with_reason(NetCMConnectionOpen(&profile, 1));
        const Lock lock(mutex_);
        if (result.status == NETCM_SUCCESS) {
            use->accepted = true;
            use->close_wanted = use->close_wanted || leaving_;
        } else {
            end_use(use, result);
        }
    }

    static Result with_reason(std::uint32_t status) noexcept {
        Result result{status, std::nullopt};
        std::int32_t reason = -1;
        if (status == static_cast<std::uint32_t>(Status::refused_with_reason) &&
            NetCMGetTransportError(&reason) == NETCM_SUCCESS && reason != -1)
            result.reason = reason;
        return result;
    }

    static constexpr Limit kBeforeNextClose{250};

    static bool may_close_again(std::uint32_t status) noexcept {
        return status == NETCM_ERR_FAILURE || status == NETCM_ERR_REREGISTER_FAILED || status == NETCM_ERR_NOT_ACTIVE;
    }

    /* ---- under the mutex */

    template <class Reached>
    Result wait_for(const UsePtr &use, const Deadline &deadline, std::error_code &system, Reached reached) {
        if (!is_ours())
            return {NETCM_ERR_NOT_REGISTERED, std::nullopt};
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        deadline.wait(changed_, lock, [&] { return reached() || use->has_ended(); });
        if (use->has_ended())
            return use->end.status != NETCM_SUCCESS ? use->end : Result{NETCM_ERR_NOT_ACTIVE, std::nullopt};
        if (!reached())
            system = code_of(std::errc::timed_out);
        return {};
    }

    void throw_failure(Lock &lock) {
        if (!failure_)
            return;
        const std::exception_ptr failure = std::exchange(failure_, nullptr);
        lock.unlock();
        std::rethrow_exception(failure);
    }

    void end_use(const UsePtr &use, const Result &result) noexcept {
        if (use->has_ended())
            return;
        use->state = Use::State::ended;
        use->end = result;
        ++ends_;
        const auto found = std::find(uses_.begin(), uses_.end(), use);
        if (found != uses_.end())
            uses_.erase(found);
    }

    template <class List, class Item>
    static void forget(List &list, const Item &item) noexcept {
        list.erase(std::remove(list.begin(), list.end(), item), list.end());
    }

    Result wait_for_answer(std::vector<PendingPtr> &list, const PendingPtr &pending, const Deadline &deadline,
                           std::error_code &system) {
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        if (!deadline.wait(changed_, lock, [&] { return pending->done || gone_; }))
            system = code_of(std::errc::timed_out);
        else if (!pending->done)
            pending->result.status = NETCM_ERR_NOT_REGISTERED;
        forget(list, pending);
        return pending->result;
    }

    static void answer_all(const std::vector<PendingPtr> &list, std::uint32_t key, const Result &result,
                           std::vector<std::byte> *data) noexcept {
        for (const PendingPtr &pending : list) {
            if (pending->key != key || pending->done)
                continue;
            pending->result = result;
            pending->done = true;
            if (data != nullptr)
                pending->data = std::move(*data);
        }
    }

    /* The use that an event is about. A connection that the server's end has ended may be opened again before its end
     * is told: an open response is that of a use without one, and the oldest comes first. One that is being killed is
     * the library's no more, unless the kill has only just been asked for. */
    UsePtr use_of(std::int32_t profile, bool is_open_response, bool may_be_default) const noexcept {
        for (const bool killing : {false, true})
            for (const std::int32_t wanted : {profile, may_be_default ? default_profile : profile})
                for (const UsePtr &use : uses_)
                    if (use->profile == wanted && use->killing == killing && !(is_open_response && use->answered))
                        return use;
        return nullptr;
    }

    /* First what the event changes, which needs no memory, then the event itself, for which there may be none. */
    void sort(const NetCMEvent &event) noexcept {
        switch (event.EventType) {
            case NETCM_EVENT_OPEN_RSP:
                return opened(event);
            case NETCM_EVENT_CLOSE_RSP:
                return ended<Closed>(event, use_of(event.ProfileId, false, false));
            case NETCM_EVENT_STOP_IND:
                return ended<Stopped>(event, use_of(event.ProfileId, false, true));
            case NETCM_EVENT_KILL_RSP:
                return killed(event);
            case NETCM_EVENT_SUSPEND_IND:
                return switched<Suspended>(event, Use::State::open, Use::State::suspended);
            case NETCM_EVENT_RESUME_IND:
                return switched<Resumed>(event, Use::State::suspended, Use::State::open);
            case NETCM_EVENT_IP_CHANGE_IND:
                return address_changed(event);
            case NETCM_EVENT_TUNNEL_RSP:
                return tunnel_answered(event);
            case NETCM_EVENT_TUNNEL_IND:
                return tunnel_data(event);
            case NETCM_EVENT_NETWORK_STATUS_IND:
                return network_changed(event);
            default:
                return;
        }
    }

    void opened(const NetCMEvent &event) noexcept {
        const UsePtr use = use_of(event.ProfileId, true, true);
        if (!use)
            return;
        use->profile = event.ProfileId;
        if (event.Result != 0)
            return ended<Refused>(event, use);
        use->answered = true;
        use->accepted = true;
        if (use->state == Use::State::opening)
            use->state = Use::State::open;
        if (event.Data != nullptr)
            use->info = *static_cast<const NetCMConnInfo *>(event.Data);
        keep(use->inbox, [&] { return Opened{info_of(use->info)}; });
    }

    template <class T>
    void ended(const NetCMEvent &event, const UsePtr &use) noexcept {
        if (!use)
            return;
        use->profile = event.ProfileId;
        end_use(use, result_of(event));
        keep(use->inbox, [&] { return outcome_of<T>(event); });
    }

    /* Only who has asked is told, and his use has ended since. Where no kill is known it was kill_all(). */
    void killed(const NetCMEvent &event) noexcept {
        const auto key = static_cast<std::uint32_t>(event.ProfileId);
        const bool is_known =
            std::any_of(kills_.begin(), kills_.end(), [&](const PendingPtr &kill) { return kill->key == key; });
        answer_all(kills_, key, result_of(event), nullptr);
        const auto found = std::find_if(uses_.begin(), uses_.end(), [&](const UsePtr &use) {
            return use->profile == event.ProfileId && (use->killing || !is_known);
        });
        if (found != uses_.end())
            ended<Killed>(event, UsePtr(*found));
    }

    template <class T>
    void switched(const NetCMEvent &event, Use::State from, Use::State to) noexcept {
        const UsePtr use = use_of(event.ProfileId, false, false);
        if (!use)
            return;
        if (use->state == from)
            use->state = to;
        keep(use->inbox, [&] { return outcome_of<T>(event); });
    }

    void address_changed(const NetCMEvent &event) noexcept {
        const UsePtr use = use_of(event.ProfileId, false, false);
        if (!use || event.Data == nullptr)
            return;
        use->info = *static_cast<const NetCMConnInfo *>(event.Data);
        keep(use->inbox, [&] { return AddressChanged{info_of(use->info)}; });
    }

    void tunnel_data(const NetCMEvent &event) noexcept {
        if (const auto *const data = static_cast<const NetCMTunnelData *>(event.Data))
            keep(inbox_, [&] { return TunnelData{data->RequestId, bytes_of(data->Data, data->DataLength)}; });
    }

    void network_changed(const NetCMEvent &event) noexcept {
        if (const auto *const states = static_cast<const std::int32_t *>(event.Data))
            keep(inbox_, [&] { return NetworkChanged{{states[0], states[1]}}; });
    }

    void tunnel_answered(const NetCMEvent &event) noexcept {
        const auto *const data = static_cast<const NetCMTunnelData *>(event.Data);
        if (data == nullptr)
            return;
        Result result{static_cast<std::uint32_t>(event.Result), std::nullopt};
        std::vector<std::byte> bytes;
        QUORVEL_TRY {
            bytes = bytes_of(data->Data, data->DataLength);
            const bool is_known = std::any_of(tunnels_.begin(), tunnels_.end(),
                                              [&](const PendingPtr &one) { return one->key == data->RequestId; });
            if (!is_known && is_tunnelling_) {
                const PendingPtr early = std::make_shared<Pending>();
                *early = Pending{data->RequestId, true, result, std::move(bytes)};
                early_tunnels_.push_back(early);
            }
        }
        QUORVEL_CATCH_ALL {
            result.status = NETCM_ERR_FAILURE;
        }
        answer_all(tunnels_, data->RequestId, result, &bytes);
    }

    template <class Make>
    void keep(Inbox &box, Make make) noexcept {
        QUORVEL_TRY {
            if (box.waiting.size() == Inbox::kRoom) {
                box.waiting.pop_front();
                ++box.lost;
            }
            box.waiting.push_back({++number_, make()});
        }
        QUORVEL_CATCH_ALL {
            ++box.lost;
        }
    }

    /* A handler may hold what holds it, its connection for one. */
    void drop_handlers(Lock &lock) noexcept {
        std::shared_ptr<const Handler> dropped = std::move(inbox_.handler);
        for (;;) {
            lock.unlock();
            dropped.reset();
            lock.lock();
            const auto found = std::find_if(listened_.begin(), listened_.end(),
                                            [](const UsePtr &use) { return use->inbox.handler != nullptr; });
            if (found == listened_.end())
                return;
            dropped = std::move((*found)->inbox.handler);
        }
    }

    /* ---- the thread of the handlers */

    void event_thread() noexcept {
        Lock lock(mutex_);
        event_thread_ = pthread_self();
        for (;;) {
            Inbox *box = nullptr;
            changed_.wait(lock, [&] { return leaving_ || (box = next_box()) != nullptr; });
            if (leaving_)
                return;
            const Event event = std::move(box->waiting.front().event);
            box->waiting.pop_front();
            std::shared_ptr<const Handler> handler = box->handler;
            running_ = box;
            lock.unlock();
            std::exception_ptr failure = run(*handler, event);
            /* In a child that a handler has forked this thread is the only one, and its locks are not its own. */
            if (!is_ours()) {
                static_cast<void>(lock.release());
                return;
            }
            handler.reset();
            lock.lock();
            running_ = nullptr;
            if (!failure_)
                failure_.swap(failure);
            changed_.notify_all();
        }
    }

    static std::exception_ptr run(const Handler &handler, const Event &event) noexcept {
        std::exception_ptr failure;
        QUORVEL_TRY {
            handler(event);
        }
        QUORVEL_CATCH_ALL {
            failure = std::current_exception();
        }
        return failure;
    }

    bool is_event_thread() const noexcept {
        return has_event_thread_ && event_thread_ && pthread_equal(*event_thread_, pthread_self()) != 0;
    }

    /* Of all that have a handler the one with the oldest event. */
    Inbox *next_box() noexcept {
        Inbox *oldest = nullptr;
        const auto consider = [&](Inbox &box) {
            if (box.handler && !box.waiting.empty() &&
                (oldest == nullptr || box.waiting.front().number < oldest->waiting.front().number))
                oldest = &box;
        };
        consider(inbox_);
        for (const UsePtr &use : listened_)
            consider(use->inbox);
        return oldest;
    }

    void stop_listening(const UsePtr &use) noexcept {
        if (use)
            forget(listened_, use);
    }

    void wait_until_not_running(Lock &lock, const Inbox &box) {
        if (!is_event_thread())
            changed_.wait(lock, [&] { return running_ != &box; });
    }

    const pid_t process_ = getpid();
    std::size_t slot_ = 0;

    std::mutex mutex_; /* nothing is called under it: neither the library nor a handler */
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    std::vector<UsePtr> uses_; /* that the library has been asked for, until they end */
    std::vector<UsePtr> listened_;
    std::vector<PendingPtr> kills_;
    std::vector<PendingPtr> tunnels_;
    std::vector<PendingPtr> early_tunnels_;
    Inbox inbox_;
    Inbox *running_ = nullptr;
    std::exception_ptr failure_;
    std::optional<pthread_t> event_thread_;
    std::uint64_t number_ = 0;
    std::uint64_t ends_ = 0;
    Result registration_;
    bool registered_ = false;
    bool leaving_ = false;
    bool gone_ = false;
    bool has_event_thread_ = false;
    bool is_tunnelling_ = false;
};

}  // namespace detail

/* ---------------------------------------------------------------------------------------------------------------
 * Names, inside */

namespace detail {

inline Host host_of(const hostent &from) {
    Host host;
    host.name = from.h_name == nullptr ? "" : from.h_name;
    for (char **alias = from.h_aliases; alias != nullptr && *alias != nullptr; ++alias)
        host.aliases.emplace_back(*alias);
    for (char **entry = from.h_addr_list; entry != nullptr && *entry != nullptr; ++entry) {
        in_addr address{};
        std::memcpy(&address, *entry, sizeof address);
        host.addresses.emplace_back(address);
    }
    return host;
}

/* One question, shared by who asks and the library's worker: who asks may have gone when the answer comes. */
struct Lookup {
    bool done = false;
    std::error_code error;
    Host host;
    std::optional<std::promise<Host>> promise;
};

/* The library's requests, one table for each process: a child of a fork has a new one. The library hands a callback no
 * more than its id. */
class Names {
  public:
    static Names &of_this_process() {
        Names *names = current().load(std::memory_order_acquire);
        while (names == nullptr || names->process_ != getpid()) {
            auto fresh = std::make_unique<Names>();
            if (current().compare_exchange_strong(names, fresh.get(), std::memory_order_acq_rel))
                return *fresh.release();
        }
        return *names;
    }

    /* Waits for room, if it has a deadline to. False when the request has not been taken. */
    bool ask(std::int32_t profile, const std::string &name, const std::shared_ptr<Lookup> &lookup,
             const Deadline *deadline) {
        {
            const NotCancelled all_the_time;
            Lock lock(mutex_);
            if (deadline != nullptr)
                deadline->wait(changed_, lock, [&] { return held_ < kMost; });
            if (held_ >= kMost)
                return false;
            ++held_;
        }
        unsigned id = 0;
        const bool taken = name.find('\0') == std::string::npos &&
                           NetDNSGetHostByNameAsync(profile, name.c_str(), &Names::answered, &id) == 1 && id <= kMost;
        const Lock lock(mutex_);
        if (taken)
            lookups_[id] = lookup;
        else
            --held_;
        changed_.notify_all();
        return taken;
    }

    bool wait(const std::shared_ptr<Lookup> &lookup, const Deadline &deadline) {
        const NotCancelled all_the_time;
        Lock lock(mutex_);
        return deadline.wait(changed_, lock, [&] { return lookup->done; });
    }

  private:
    static constexpr std::size_t kMost = 10;

    /* A request keeps its place until the worker has ended, a little after the callback. */
    struct WorkerEnd {
        std::size_t answers = 0;
        WorkerEnd() = default;
        WorkerEnd(const WorkerEnd &) = delete;
        WorkerEnd &operator=(const WorkerEnd &) = delete;
        ~WorkerEnd() {
            Names &names = *current().load(std::memory_order_acquire);
            const Lock lock(names.mutex_);
            names.held_ -= std::min(answers, names.held_);
            names.changed_.notify_all();
        }
    };

    static std::atomic<Names *> &current() noexcept {
        static std::atomic<Names *> names{nullptr};
        return names;
    }

    /* On the library's worker. The id is not used again before this returns, so that it can wait for who has
     * asked to say whose it is. */
    static void answered(hostent *host, unsigned id) {
        thread_local WorkerEnd end;
        ++end.answers;
        of_this_process().finish(host, id);
    }

    void finish(const hostent *host, unsigned id) {
        Host copy;
        std::error_code error;
        QUORVEL_TRY {
            if (host != nullptr)
                copy = host_of(*host);
            if (copy.name.empty() || copy.addresses.empty())
                error = make_error_code(NameError::not_found);
        }
        QUORVEL_CATCH_ALL {
            error = std::make_error_code(std::errc::not_enough_memory);
        }
        std::shared_ptr<Lookup> lookup;
        {
            Lock lock(mutex_);
            changed_.wait(lock, [&] { return lookups_[id] != nullptr; });
            lookup.swap(lookups_[id]);
            lookup->host = std::move(copy);
            lookup->error = error;
            lookup->done = true;
            changed_.notify_all();
        }
        if (lookup->promise)
            keep_promise(*lookup);
    }

    static void keep_promise(Lookup &lookup) {
#if defined(__cpp_exceptions)
        try {
            if (lookup.error)
                lookup.promise->set_exception(std::make_exception_ptr(Error(lookup.error, "cannot resolve")));
            else
                lookup.promise->set_value(std::move(lookup.host));
        } catch (...) {
            lookup.promise->set_exception(std::current_exception());
        }
#else
        if (!lookup.error)
            lookup.promise->set_value(std::move(lookup.host));
#endif
    }

    const pid_t process_ = getpid();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<std::shared_ptr<Lookup>, kMost + 1> lookups_;
    std::size_t held_ = 0;
};

}  // namespace detail

/* ---------------------------------------------------------------------------------------------------------------
 * A connection
 *
 * Made by Registration::open and start; closed when it goes out of scope, or earlier by close(). It may outlive its
 * Registration, which closes it. */
class Connection {
  public:
    using State = detail::Use::State; /* opening, open, suspended, closing, ended */

    /* An empty one, which has ended. */
    Connection() noexcept = default;
    Connection(Connection &&) noexcept = default;
    Connection &operator=(Connection &&other) noexcept {
        if (this != &other) {
            release(close_limit);
            core_ = std::move(other.core_);
            use_ = std::move(other.use_);
        }
        return *this;
    }
    /* Takes its handler away and closes; waits close_limit at most, and leaves the rest to the Registration's thread. */
    ~Connection() { release(close_limit); }

    /* Whether it is open, suspended or not. */
    explicit operator bool() const noexcept {
        const State now = state();
        return now == State::open || now == State::suspended;
    }
    State state() const noexcept {
        return look(State::ended, [this] { return use_->state; });
    }
    /* The profile's id; of the default profile 0 until the open response is there. */
    std::int32_t profile() const noexcept {
        return look(std::int32_t{0}, [this] { return use_->profile; });
    }
    /* Interface, addresses and DNS servers, as they are now; empty before the open response. */
    ConnectionInfo info() const {
        return look(ConnectionInfo{}, [this] { return detail::info_of(use_->info); });
    }
    /* How it has ended; nothing before it has. Without an error it was closed. */
    std::optional<Outcome> outcome() const {
        return look(std::optional<Outcome>(), [this] {
            return use_->has_ended()
                       ? std::optional<Outcome>(Outcome{use_->profile, use_->end.code(), use_->end.reason})
                       : std::nullopt;
        });
    }

    /* Waits for the open response of a connection that start() has made. The error: why it was refused or has ended;
     * std::errc::timed_out, after which it goes on opening. */
    void wait_open(Limit limit = open_limit, OnError on_error = {}) {
        if (!core_)
            return on_error(make_error_code(Status::not_registered), "no connection");
        std::error_code error;
        const detail::Result result = core_->wait_open(use_, detail::Deadline(limit), error);
        core_->rethrow();
        report(on_error, error ? error : result.code(), "cannot open", result.reason);
    }

    /* Waits until the connection has ended, for whatever reason: outcome() tells. False when the limit has passed. */
    bool wait_ended(Limit limit = forever) {
        return !core_ || core_->wait_ended_or_throw(use_, detail::Deadline(limit));
    }

    /* The next event of this connection. Nothing when the limit has passed, when the connection has ended and all has
     * been told, or when a handler takes the events. 1024 are kept for somebody slow; the oldest go first, and lost()
     * counts them. */
    std::optional<Event> next_event(Limit limit = forever) {
        return core_ ? core_->next_event(use_->inbox, use_, detail::Deadline(limit)) : std::nullopt;
    }
    std::uint64_t lost() const noexcept { return core_ ? core_->lost(use_->inbox) : 0; }

    /* Hands the events of this connection to a handler (rule 4), those that wait already first; an empty one ends
     * that. The error is the system's, when it has no thread. */
    void on_event(Handler handler, OnError on_error = {}) {
        if (!core_)
            return on_error(make_error_code(Status::not_registered), "no connection");
        const int error = core_->listen(use_, use_->inbox, std::move(handler));
        if (error != 0)
            on_error(std::error_code(error, std::generic_category()), "cannot start the thread of the handlers");
    }

    /* Closes and waits until the connection has ended; at once when it has, or is empty. While others use the profile
     * it stays up for them. */
    void close(Limit limit = close_limit, OnError on_error = {}) {
        if (!core_)
            return;
        std::error_code error;
        const detail::Result result = core_->close(use_, detail::Deadline(limit), error);
        report(on_error, error ? error : result.code(), "cannot close", result.reason);
    }

    /* Ends the connection for everybody who uses it, and waits for the server's answer. This one has ended then,
     * also with std::errc::timed_out or when the server has refused. */
    void kill(Limit limit = close_limit, OnError on_error = {}) {
        if (!core_)
            return on_error(make_error_code(Status::not_active), "cannot kill");
        std::error_code error;
        const detail::Result result = core_->kill(default_profile, use_, detail::Deadline(limit), error);
        report(on_error, error ? error : result.code(), "cannot kill", result.reason);
    }

    /* Resolves a host name over this connection's interface and by its DNS servers, or from the cache. The error is a
     * NameError, or std::errc::timed_out. Ten names of a process may be under way; the eleventh waits. */
    Host resolve(const std::string &name, Limit limit = std::chrono::seconds(30), OnError on_error = {}) const {
        const detail::Deadline deadline(limit);
        const auto lookup = std::make_shared<detail::Lookup>();
        const std::string what = "cannot resolve " + name;
        detail::Names &names = detail::Names::of_this_process();
        if (!*this || !names.ask(profile(), name, lookup, &deadline)) {
            on_error(make_error_code(NameError::refused), what);
        } else if (!names.wait(lookup, deadline)) {
            on_error(detail::code_of(std::errc::timed_out), what);
        } else if (lookup->error) {
            on_error(lookup->error, what);
        } else {
            return std::move(lookup->host);
        }
        return {};
    }

    /* The same without waiting. The future holds the host, or the Error; an eleventh request is refused. */
    std::future<Host> resolve_later(const std::string &name, OnError on_error = {}) const {
        const auto lookup = std::make_shared<detail::Lookup>();
        std::future<Host> future = lookup->promise.emplace().get_future();
        if (*this && detail::Names::of_this_process().ask(profile(), name, lookup, nullptr))
            return future;
        on_error(make_error_code(NameError::refused), "cannot resolve " + name);
        return {};
    }

    /* Finds the name of an address by this connection's DNS servers, asked one after another over its interface: four
     * seconds each at most. Always asks; makes no use of the cache. */
    std::string name_of(Address address, OnError on_error = {}) const {
        const ConnectionInfo from = info();
        for (const Address &server : from.dns) {
            const std::string name = ask_name(server.to_string(), from.interface, address);
            if (!name.empty())
                return name;
        }
        on_error(make_error_code(NameError::not_found), "cannot find the name of " + address.to_string());
        return {};
    }

  private:
    friend class Registration;
    Connection(detail::Core::Ptr core, detail::UsePtr use) noexcept : core_(std::move(core)), use_(std::move(use)) {}

    template <class T, class Read>
    T look(T otherwise, Read read) const {
        return core_ && core_->is_ours() ? core_->look(read) : otherwise;
    }
    void report(const OnError &on_error, std::error_code code, const char *what,
                std::optional<std::int32_t> reason) const {
        if (code)
            on_error(code, what + (" profile " + std::to_string(profile())), reason);
    }

    void release(Limit limit) noexcept {
        if (!core_)
            return;
        const detail::Core::Ptr core = std::move(core_);
        const detail::UsePtr use = std::move(use_);
        core->listen(use, use->inbox, nullptr);
        core->want_close(use);
        core->wait_ended(use, detail::Deadline(limit));
    }

    static std::string ask_name(const std::string &server, const std::string &interface, Address address) {
        const in_addr bytes = address.get();
        for (int needed = 1024, room = 0; needed > room;) {
            room = needed;
            std::vector<std::max_align_t> memory(static_cast<std::size_t>(room) / sizeof(std::max_align_t) + 1);
            int error = 0;
            unsigned life = 0;
            const hostent *const host = dnet_gethostbyaddr_r(
                server.c_str(), interface.c_str(), reinterpret_cast<const char *>(&bytes), sizeof bytes, AF_INET,
                reinterpret_cast<char *>(memory.data()), room, &error, &life, &needed);
            if (host != nullptr)
                return host->h_name == nullptr ? "" : host->h_name;
            if (error != NETDB_INTERNAL || needed > 64 * 1024)
                break;
        }
        return "";
    }

    detail::Core::Ptr core_;
    detail::UsePtr use_;
};

/* ---------------------------------------------------------------------------------------------------------------
 * Profiles
 *
 * Numbers whose meaning is not given here are the server's and pass unchanged. A text that is too long for its field of
 * NetPM.h, or holds a NUL, is std::errc::invalid_argument; what() names the field. */

struct PacketData {
    std::string apn; /* at most 103 bytes */
    std::uint32_t protocol_type = 0;
    std::uint32_t address_type = 0;
    std::optional<Address> static_address;
    std::optional<std::array<Address, 2>> static_dns;
    std::uint32_t auth_type = 0; /* of cm-server: 0 none, 1 PAP, 2 CHAP */
    std::string user_name;       /* at most 31 bytes, and the password */
    std::string password;
    Address gateway;
    Address net_mask;
    std::string home_url; /* at most 513 bytes */
    bool secure_connection = false;
    std::uint32_t app_protocol = 1; /* 1, 2 or 4 */
    std::int32_t linger_time = 0;
    bool primary = false;
    std::int32_t primary_profile = 0; /* of a secondary profile */
    std::uint32_t qos_type = 0;
    std::uint32_t traffic_class = 0;
};

/* What keeps a Wi-Fi network shut. */
struct Wep {
    std::array<std::string, 4> keys; /* at most 26 bytes each */
    std::uint8_t key_index = 0;      /* 0 to 3: the key in use */
};
struct Psk {
    std::string key; /* at most 64 bytes */
};
struct Eap {
    std::string user_name; /* at most 50 bytes, as all that follow */
    std::string password;
    std::string ca_certificate; /* files */
    std::string client_certificate;
    std::string private_key;
    std::string private_key_password;
    std::int32_t type = 0;
};

struct Wifi {
    std::string essid; /* the network's name, at most 32 bytes */
    std::string bssid; /* at most 6 bytes */
    std::int32_t frequency = 0;
    std::int32_t rate = 0;
    std::int32_t standard = 0;
    std::int32_t mode = 0;
    /* 1: open, 2 and 3: WEP, 4, 6 and 8: PSK, 5, 7 and 9: EAP. 0: 1, 2, 4 or 5, as `security` says. */
    std::int32_t security_mode = 0;
    std::variant<std::monostate, Wep, Psk, Eap> security;
    std::int32_t encryption_mode = 0;
    std::int32_t address_type = 0;
    std::int32_t ip_config_type = 0;
    Address address;
    Address gateway;
    Address net_mask;
    std::int32_t dns_config_type = 0;
    std::array<Address, 2> dns;
    std::string interface; /* at most 15 bytes */
};

struct Profile {
    std::int32_t id = 0; /* given by the server */
    std::string name;    /* at most 27 bytes */
    std::uint32_t attributes = 0;
    std::string proxy; /* dotted address, colon, port; at most 63 bytes */
    std::variant<PacketData, Wifi> network;
    /* As it was read: what has no name above goes back with the rest. */
    NetPMProfile record{};
};

/* A few parameters of a profile. */
struct ProfileSummary {
    std::int32_t id = 0;
    bool is_wifi = false;
    std::string name;
    std::string network; /* the APN, or the ESSID */
};

/* Which profile and which interfaces an application uses. */
struct Binding {
    std::uint32_t application = 0;
    std::uint32_t param = 0; /* the server's */
    std::uint32_t profile = 0;
    std::array<std::uint32_t, 2> interfaces{};
};

namespace detail {

/* Between named fields and the record, one function for both ways. */
class Reader {
  public:
    template <std::size_t Size>
    void text(const char *, const char (&field)[Size], std::string &value) {
        value.assign(field, strnlen(field, Size));
    }
    template <class Field, class Value>
    void number(const Field &field, Value &value) {
        value = static_cast<Value>(field);
    }
    void address(const NetPMIpAddr &field, Address &value) { value = Address(in_addr{field.Ipv4}); }
};

class Writer {
  public:
    template <std::size_t Size>
    void text(const char *name, char (&field)[Size], const std::string &value) {
        if (value.size() >= Size || value.find('\0') != std::string::npos) {
            bad = bad == nullptr ? name : bad;
            return;
        }
        std::memset(field, 0, Size);
        std::memcpy(field, value.data(), value.size());
    }
    template <class Field, class Value>
    void number(Field &field, const Value &value) {
        field = static_cast<Field>(value);
    }
    void address(NetPMIpAddr &field, const Address &value) { field.Ipv4 = value.get().s_addr; }

    const char *bad = nullptr; /* the first field that a text does not fit into */
};

template <class Way, class Record, class Named>
void pass(Way &way, Record &record, Named &named, PacketData *) {
    way.text("apn", record.Apn, named.apn);
    way.number(record.ProtocolType, named.protocol_type);
    way.number(record.AddrType, named.address_type);
    way.number(record.AuthInfo.AuthType, named.auth_type);
    way.text("user_name", record.AuthInfo.UserName, named.user_name);
    way.text("password", record.AuthInfo.Password, named.password);
    way.address(record.DefGateway, named.gateway);
    way.address(record.NetMask, named.net_mask);
    way.text("home_url", record.HomeURL, named.home_url);
    way.number(record.BSecureConnection, named.secure_connection);
    way.number(record.AppProtoType, named.app_protocol);
    way.number(record.lingerTime, named.linger_time);
    way.number(record.BPrimaryPdpProfile, named.primary);
    way.number(record.PrimaryPdpProfileId, named.primary_profile);
    way.number(record.QosInfo.QosType, named.qos_type);
    way.number(record.QosInfo.Qos.QosUmts.TrafficClass, named.traffic_class);
}

template <class Way, class Record, class Named>
void pass(Way &way, Record &record, Named &named, Wifi *) {
    way.text("essid", record.essid, named.essid);
    way.text("bssid", record.bssid, named.bssid);
    way.number(record.freq, named.frequency);
    way.number(record.rate, named.rate);
    way.number(record.standard, named.standard);
    way.number(record.wlan_mode, named.mode);
    way.number(record.security.encrypt_mode, named.encryption_mode);
    way.number(record.net_info.addr_type, named.address_type);
    way.number(record.net_info.IpConfigType, named.ip_config_type);
    way.address(record.net_info.ip_addr, named.address);
    way.address(record.net_info.def_gateway, named.gateway);
    way.address(record.net_info.net_mask, named.net_mask);
    way.number(record.net_info.DnsConfigType, named.dns_config_type);
    way.address(record.net_info.dns_addr[0], named.dns[0]);
    way.address(record.net_info.dns_addr[1], named.dns[1]);
    way.text("interface", record.net_info.ifname, named.interface);
}

template <class Way, class Record, class Named>
void pass(Way &way, Record &record, Named &named, Wep *) {
    for (std::size_t i = 0; i < named.keys.size(); ++i)
        way.text("keys", record.wep.wepKey[i], named.keys[i]);
    way.number(record.wep.wepKeyIndex, named.key_index);
}

template <class Way, class Record, class Named>
void pass(Way &way, Record &record, Named &named, Psk *) {
    way.text("key", record.psk.pskKey, named.key);
}

template <class Way, class Record, class Named>
void pass(Way &way, Record &record, Named &named, Eap *) {
    way.text("user_name", record.eap.username, named.user_name);
    way.text("password", record.eap.password, named.password);
    way.text("ca_certificate", record.eap.ca_cert_filename, named.ca_certificate);
    way.text("client_certificate", record.eap.client_cert_filename, named.client_certificate);
    way.text("private_key", record.eap.private_key_filename, named.private_key);
    way.text("private_key_password", record.eap.private_key_passwd, named.private_key_password);
    way.number(record.eap.wlan_eap_type, named.type);
}

template <class T, class Record>
T read_as(const Record &record) {
    T named;
    Reader reader;
    pass(reader, record, named, static_cast<T *>(nullptr));
    return named;
}

inline PacketData packet_data_of(const NetPMPdpProfInfo &record) {
    auto named = read_as<PacketData>(record);
    if (record.BStaticIpAddr != 0)
        named.static_address = Address(in_addr{record.IpAddr.Ipv4});
    if (record.BStaticDnsAddr != 0)
        named.static_dns = {Address(in_addr{record.DnsAddr[0].Ipv4}), Address(in_addr{record.DnsAddr[1].Ipv4})};
    return named;
}

inline Wifi wifi_of(const NetPMWlanProfInfo &record) {
    auto named = read_as<Wifi>(record);
    named.security_mode = record.security.sec_mode;
    switch (named.security_mode) {
        case 2:
        case 3:
            named.security = read_as<Wep>(record.security.form);
            break;
        case 4:
        case 6:
        case 8:
            named.security = read_as<Psk>(record.security.form);
            break;
        case 5:
        case 7:
        case 9:
            named.security = read_as<Eap>(record.security.form);
            break;
        default:
            break;
    }
    return named;
}

inline Profile profile_of(const NetPMProfile &record) {
    Profile profile;
    Reader reader;
    profile.id = record.ProfileId;
    reader.text("name", record.ProfileName, profile.name);
    profile.attributes = record.ProfileAttr;
    reader.text("proxy", record.ProxyAddr, profile.proxy);
    if (record.ProfileType == NETPM_PROFILE_WLAN)
        profile.network = wifi_of(record.WlanProfInfo);
    else
        profile.network = packet_data_of(record.PdpProfInfo);
    profile.record = record;
    return profile;
}

inline void write(Writer &writer, const PacketData &named, NetPMProfile &to) {
    NetPMPdpProfInfo &record = to.PdpProfInfo;
    pass(writer, record, named, static_cast<PacketData *>(nullptr));
    record.BStaticIpAddr = named.static_address.has_value();
    record.IpAddr.Ipv4 = named.static_address.value_or(Address()).get().s_addr;
    record.BStaticDnsAddr = named.static_dns.has_value();
    const auto dns = named.static_dns.value_or(std::array<Address, 2>());
    for (std::size_t i = 0; i < dns.size(); ++i)
        record.DnsAddr[i].Ipv4 = dns[i].get().s_addr;
}

inline void write(Writer &writer, const Wifi &named, NetPMProfile &to) {
    NetPMWlanProfInfo &record = to.WlanProfInfo;
    pass(writer, record, named, static_cast<Wifi *>(nullptr));
    constexpr std::int32_t modes[] = {1, 2, 4, 5};
    record.security.sec_mode = named.security_mode != 0 ? named.security_mode : modes[named.security.index()];
    std::visit(
        [&](const auto &form) {
            using Form = std::decay_t<decltype(form)>;
            if constexpr (!std::is_same_v<Form, std::monostate>)
                pass(writer, record.security.form, form, static_cast<Form *>(nullptr));
        },
        named.security);
}

/* The name of the field that a text does not fit into, or null. */
inline const char *write_profile(const Profile &profile, NetPMProfile &record) {
    record = profile.record;
    const std::uint32_t type = std::holds_alternative<Wifi>(profile.network) ? NETPM_PROFILE_WLAN : NETPM_PROFILE_PDP;
    /* Of another kind of network nothing is kept, nor of another form of security. */
    if (record.ProfileType != type)
        std::memset(&record.PdpProfInfo, 0, sizeof record - offsetof(NetPMProfile, PdpProfInfo));
    else if (type == NETPM_PROFILE_WLAN &&
             wifi_of(record.WlanProfInfo).security.index() != std::get<Wifi>(profile.network).security.index())
        std::memset(&record.WlanProfInfo.security.form, 0, sizeof record.WlanProfInfo.security.form);
    record.ProfileType = type;
    record.ProfileId = profile.id;
    record.ProfileAttr = profile.attributes;
    Writer writer;
    writer.text("name", record.ProfileName, profile.name);
    std::visit([&](const auto &network) { write(writer, network, record); }, profile.network);
    writer.text("proxy", record.ProxyAddr, profile.proxy);
    return writer.bad;
}

}  // namespace detail

/* The stored profiles, and which of them applications use: Registration::profiles(). */
class Profiles {
  public:
    enum class Kind : std::uint32_t { packet_data = 0, wifi = 1, every = 2 };

    /* Gives the new profile's id. */
    std::int32_t add(const Profile &profile, OnError on_error = {}) const {
        NetPMProfile record;
        std::int32_t id = 0;
        if (!convert(profile, record, "cannot add the profile", on_error))
            return 0;
        ask("cannot add the profile", on_error, [&] { return NetPMAddProfileInfo(&record, &id); });
        return std::max(id, 0);
    }
    /* Replaces the profile that has its id. */
    void modify(const Profile &profile, OnError on_error = {}) const {
        NetPMProfile record;
        const std::string what = of("cannot change", profile.id);
        if (convert(profile, record, what, on_error))
            ask(what, on_error, [&] { return NetPMModifyProfileInfo(profile.id, &record); });
    }
    void remove(std::int32_t id, OnError on_error = {}) const {
        ask(of("cannot remove", id), on_error, [&] { return NetPMDeleteProfileInfo(id); });
    }
    Profile get(std::int32_t id, OnError on_error = {}) const {
        return read(of("cannot read", id), on_error, [&](NetPMProfile *out) { return NetPMGetProfileInfo(id, out); });
    }
    /* The profile that default_profile stands for; its id; and the choice of it. */
    Profile get_default(OnError on_error = {}) const {
        return read("cannot read the default profile", on_error, NetPMGetDefaultProfileInfo);
    }
    std::int32_t default_id(OnError on_error = {}) const {
        std::int32_t id = 0;
        ask("cannot read the default profile's id", on_error, [&] { return NetPMGetDefaultProfileId(&id); });
        return id;
    }
    void set_default(std::int32_t id, OnError on_error = {}) const {
        ask(of("cannot make the default one of", id), on_error, [&] { return NetPMSetDefaultProfileId(id); });
    }

    /* At most 20 are listed. */
    std::vector<std::int32_t> ids(Kind kind = Kind::every, OnError on_error = {}) const {
        std::array<std::int32_t, NETPM_MAX_PROFILE_IDS> found{};
        std::int32_t count = 0;
        ask("cannot list the profiles", on_error, [&] {
            return NetPMGetProfileIdList(static_cast<std::uint32_t>(kind), NETPM_MAX_PROFILE_IDS, found.data(), &count);
        });
        return first(found.data(), count, NETPM_MAX_PROFILE_IDS);
    }
    std::vector<ProfileSummary> summaries(Kind kind = Kind::every, OnError on_error = {}) const {
        std::vector<std::byte> room(NETPM_LIST_ROOM);
        std::int32_t count = 0;
        ask("cannot list the profiles", on_error,
            [&] { return NetPMReadPartialProfileInfo(static_cast<std::uint32_t>(kind), room.data(), &count); });
        std::vector<ProfileSummary> summaries;
        for (std::int32_t i = 0; i < std::min(count, NETPM_MAX_PARTIAL_PROFILES); ++i) {
            NetPMPartialProfile entry;
            std::memcpy(&entry, room.data() + static_cast<std::size_t>(i) * sizeof entry, sizeof entry);
            ProfileSummary summary;
            summary.id = entry.ProfileId;
            summary.is_wifi = entry.ProfileType == NETPM_PROFILE_WLAN;
            detail::Reader().text("name", entry.ProfileName, summary.name);
            detail::Reader().text("network", entry.NetworkName, summary.network);
            summaries.push_back(std::move(summary));
        }
        return summaries;
    }
    std::vector<std::int32_t> find_apn(const std::string &apn, OnError on_error = {}) const {
        return find(0, apn, on_error);
    }
    std::vector<std::int32_t> find_essid(const std::string &essid, OnError on_error = {}) const {
        return find(1, essid, on_error);
    }

    /* The server's numbers. */
    std::uint16_t status(std::int32_t id, OnError on_error = {}) const {
        std::uint16_t value = 0;
        ask(of("cannot read the status of", id), on_error, [&] { return NetPMGetProfileStatus(id, &value); });
        return value;
    }
    std::uint32_t attributes(std::int32_t id, OnError on_error = {}) const {
        std::uint32_t value = 0;
        ask(of("cannot read the attributes of", id), on_error, [&] { return NetPMGetProfileAttributes(id, &value); });
        return value;
    }
    /* Back to what the device was delivered with. */
    void restore(OnError on_error = {}) const { ask("cannot restore the profiles", on_error, NetPMRestoreProfileInfo); }

    /* Applications, by their ids above 0. The first three answer false for a refusal and for every failure alike. */
    bool add_application(std::int32_t id) const {
        return core_ && is_one([&] { return NetPMAppProfAddAppId(id); });
    }
    bool remove_application(std::int32_t id) const {
        return core_ && is_one([&] { return NetPMAppProfDeleteAppId(id); });
    }
    bool knows_application(std::int32_t id) const {
        return core_ && is_one([&] { return NetPMAppProfCheckAppId(id); });
    }
    Binding binding(std::int32_t application, OnError on_error = {}) const {
        NetPMAppProf record{};
        ask(of_application("cannot read", application), on_error,
            [&] { return NetPMAppProfGetAppInfo(application, &record); });
        return named(record);
    }
    /* Gives the binding as the server has stored it. */
    Binding bind(const Binding &binding, OnError on_error = {}) const {
        NetPMAppProf record{
            binding.application, binding.param, binding.profile, {binding.interfaces[0], binding.interfaces[1]}};
        const auto application = static_cast<std::int32_t>(binding.application);
        ask(of_application("cannot bind", application), on_error,
            [&] { return NetPMAppProfSetAppInfo(application, &record); });
        return named(record);
    }
    /* Which profile an application is to use now. */
    std::uint32_t proper_profile(std::int32_t application, OnError on_error = {}) const {
        std::uint32_t profile = 0;
        ask(of_application("cannot ask for the profile of", application), on_error,
            [&] { return NetPMAppProfGetProperProfile(application, &profile); });
        return profile;
    }

  private:
    friend class Registration;
    explicit Profiles(detail::Core::Ptr core) noexcept : core_(std::move(core)) {}

    template <class Body>
    void ask(const std::string &what, const OnError &on_error, Body body) const {
        const detail::Result result = core_ ? core_->ask(body) : detail::Result{NETCM_ERR_NOT_REGISTERED, std::nullopt};
        if (result.status != NETCM_SUCCESS)
            on_error(result.code(), what, result.reason);
    }
    template <class Body>
    bool is_one(Body body) const {
        std::uint32_t truth = 0;
        core_->ask([&] {
            truth = body();
            return std::uint32_t{NETCM_SUCCESS};
        });
        return truth == 1;
    }
    template <class Body>
    Profile read(const std::string &what, const OnError &on_error, Body body) const {
        NetPMProfile record{};
        ask(what, on_error, [&] { return body(&record); });
        return detail::profile_of(record);
    }
    static bool convert(const Profile &profile, NetPMProfile &record, const std::string &what,
                        const OnError &on_error) {
        const char *const bad = detail::write_profile(profile, record);
        if (bad != nullptr)
            on_error(detail::code_of(std::errc::invalid_argument), what + ": " + bad + " is too long, or holds a NUL");
        return bad == nullptr;
    }
    std::vector<std::int32_t> find(std::uint32_t kind, const std::string &key, const OnError &on_error) const {
        std::vector<std::byte> room(NETPM_LIST_ROOM);
        ask("cannot look for the profiles of " + key, on_error,
            [&] { return NetPMGetFindProfileIds(kind, key.c_str(), room.data()); });
        NetPMProfileIdList list;
        std::memcpy(&list, room.data(), sizeof list);
        return first(list.ProfileId, list.Count, NETPM_MAX_PROFILE_IDS);
    }
    static std::vector<std::int32_t> first(const std::int32_t *ids, std::int32_t count, std::int32_t most) {
        return {ids, ids + std::max(0, std::min(count, most))};
    }
    static Binding named(const NetPMAppProf &record) {
        return {record.AppId, record.Param, record.ProfileId, {record.NetIfaceList[0], record.NetIfaceList[1]}};
    }
    static std::string of(const char *what, std::int32_t id) { return what + (" profile " + std::to_string(id)); }
    static std::string of_application(const char *what, std::int32_t id) {
        return what + (" application " + std::to_string(id));
    }

    detail::Core::Ptr core_;
};

/* ---------------------------------------------------------------------------------------------------------------
 * A registration
 *
 * Registers with the CM server when it is made, and deregisters when it goes out of scope. One is enough for a program,
 * whatever the number of its threads; up to 16 may be in a process, those of C included. */
class Registration {
  public:
    /* Takes up to three seconds when no server is there: Status::reregister_retry_exhausted. */
    explicit Registration(OnError on_error = {}) {
        detail::Result result;
        std::error_code system;
        core_ = detail::Core::make(result, system);
        if (!core_)
            on_error(system ? system : result.code(), "cannot register with the CM server", result.reason);
    }
    Registration(Registration &&) noexcept = default;
    Registration &operator=(Registration &&other) noexcept {
        if (this != &other) {
            release();
            core_ = std::move(other.core_);
        }
        return *this;
    }
    /* As end(), in silence. */
    ~Registration() { release(); }

    /* False when it is empty: not made, moved from, ended, or in the child of a fork. */
    explicit operator bool() const noexcept { return core_ && core_->is_usable(); }

    /* Takes the handlers away, closes every connection, and deregisters. std::errc::timed_out when the server does
     * not answer: then the rest goes on by itself. */
    void end(Limit limit = close_limit, OnError on_error = {}) {
        const detail::Core::Ptr core = std::move(core_);
        if (core && !core->leave(detail::Deadline(limit)))
            on_error(detail::code_of(std::errc::timed_out), "cannot deregister");
    }

    /* Opens a connection and waits until it is up. The error: why it was refused (reason() may say more), or
     * std::errc::timed_out. A profile that this Registration has open already gives Status::already_exists; another
     * Registration shares it. */
    Connection open(std::int32_t profile = default_profile, Limit limit = open_limit, OnError on_error = {}) {
        const detail::Deadline deadline(limit);
        return make_connection(profile, on_error, [&](const detail::UsePtr &use, std::error_code &system) {
            const detail::Result result = core_->wait_open(use, deadline, system);
            core_->drop_opened(use);
            return result;
        });
    }
    /* Asks for a connection and waits only until the server has accepted. Its events begin with Opened or Refused;
     * Connection::wait_open waits for them. */
    Connection start(std::int32_t profile = default_profile, OnError on_error = {}) {
        return make_connection(profile, on_error, [&](const detail::UsePtr &use, std::error_code &system) {
            return core_->wait_accepted(use, detail::Deadline(forever), system);
        });
    }

    /* Ends a profile's connection for everybody who uses it, whether this Registration does or not. */
    void kill(std::int32_t profile, Limit limit = close_limit, OnError on_error = {}) {
        std::error_code system;
        const detail::Result result = core_ ? core_->kill(profile, nullptr, detail::Deadline(limit), system) : nobody();
        report(on_error, system ? system : result.code(), "cannot kill profile " + std::to_string(profile),
               result.reason);
    }
    /* Ends every packet-data connection of the device; takes two seconds for each. */
    void kill_all(OnError on_error = {}) { ask("cannot kill the connections", on_error, NetCMConnectionCleanup); }

    /* Events that belong to no connection: TunnelData and NetworkChanged. As Connection's functions of these names. */
    std::optional<Event> next_event(Limit limit = forever) {
        return core_ ? core_->next_event(core_->inbox(), nullptr, detail::Deadline(limit)) : std::nullopt;
    }
    void on_event(Handler handler, OnError on_error = {}) {
        const int error = core_ ? core_->listen(nullptr, core_->inbox(), std::move(handler)) : 0;
        if (!core_)
            on_error(make_error_code(Status::not_registered), "no registration");
        else if (error != 0)
            on_error(std::error_code(error, std::generic_category()), "cannot start the thread of the handlers");
    }
    std::uint64_t lost() const noexcept { return core_ ? core_->lost(core_->inbox()) : 0; }

    /* Throws what a handler of this Registration has thrown first, and forgets it. */
    void rethrow() {
        if (core_)
            core_->rethrow();
    }

    Profiles profiles() const noexcept { return Profiles(core_); }

    /* State, settings and statistics: the server's numbers. */
    std::uint32_t network_state(Interface interface, OnError on_error = {}) {
        std::uint32_t value = 0;
        ask("cannot read the network's state", on_error,
            [&] { return NetCMGetNetworkStatus(static_cast<std::uint32_t>(interface), &value); });
        return value;
    }
    bool has(Interface interface, OnError on_error = {}) {
        std::int32_t mask = 0;
        ask("cannot read the list of interfaces", on_error, [&] { return NetCMGetNetIfaceList(&mask); });
        return (static_cast<std::uint32_t>(mask) & static_cast<std::uint32_t>(interface)) != 0;
    }
    std::uint32_t packet_data_state(OnError on_error = {}) {
        std::uint32_t value = 0;
        ask("cannot read the state of packet data", on_error, [&] { return NetCMGetPacketDataState(&value); });
        return value;
    }
    void set_packet_data_state(std::uint32_t state, OnError on_error = {}) {
        ask("cannot switch packet data", on_error, [&] { return NetCMSetPacketDataState(state); });
    }
    std::uint32_t setting(std::uint32_t key, OnError on_error = {}) {
        std::uint32_t value = 0;
        ask("cannot read the setting", on_error, [&] { return setting_result(NetCMSettingsGet, key, value); });
        return value;
    }
    void set_setting(std::uint32_t key, std::uint32_t value, OnError on_error = {}) {
        ask("cannot change the setting", on_error, [&] { return setting_result(NetCMSettingsSet, key, value); });
    }
    std::array<std::uint32_t, 6> statistics(OnError on_error = {}) {
        std::array<std::uint32_t, 6> counters{};
        ask("cannot read the statistics", on_error, [&] { return NetCMGetStatInfo(counters.data()); });
        return counters;
    }
    void reset_statistics(std::uint32_t level, OnError on_error = {}) {
        ask("cannot reset the statistics", on_error, [&] { return NetCMResetStatInfo(level); });
    }
    /* What is connected on the device: at most 16 ids, or names. */
    std::vector<std::int32_t> active_profiles(OnError on_error = {}) {
        std::array<std::int32_t, 16> ids{};
        const std::size_t count = list("cannot list the connections", on_error, [&](std::uint32_t *found) {
            return NetCMGetActiveProfileIDs(reinterpret_cast<std::uint8_t *>(ids.data()), found);
        });
        return {ids.data(), ids.data() + std::min(count, ids.size())};
    }
    std::vector<std::string> active_profile_names(OnError on_error = {}) {
        std::array<char[100], 16> texts{};
        const std::size_t count = list("cannot list the connections", on_error, [&](std::uint32_t *found) {
            return NetCMGetActiveProfileNameList(reinterpret_cast<std::uint8_t *>(texts.data()), found);
        });
        std::vector<std::string> names(std::min(count, texts.size()));
        for (std::size_t i = 0; i < names.size(); ++i)
            detail::Reader().text("name", texts[i], names[i]);
        return names;
    }

    /* Sends data to the server and waits for its answer. */
    std::vector<std::byte> tunnel(const void *data, std::size_t length, Limit limit = open_limit, OnError on_error = {},
                                  std::int32_t param = 0) {
        std::error_code system;
        std::vector<std::byte> answer;
        const detail::Result result =
            core_ ? core_->tunnel(data, length, param, detail::Deadline(limit), system, answer) : nobody();
        report(on_error, system ? system : result.code(), "cannot send tunnel data", result.reason);
        return answer;
    }
    /* Whether the process wants tunnel data that it has not asked for: TunnelData, to every Registration. */
    void want_tunnel_data(bool wanted, OnError on_error = {}) {
        ask("cannot register for tunnel data", on_error,
            wanted ? NetCMClientRegisterTunnelInd : NetCMClientDeRegisterTunnelInd);
    }

  private:
    static detail::Result nobody() noexcept { return {NETCM_ERR_NOT_REGISTERED, std::nullopt}; }

    static void report(const OnError &on_error, std::error_code code, const std::string &what,
                       std::optional<std::int32_t> reason) {
        if (code)
            on_error(code, what, reason);
    }
    template <class Body>
    void ask(const char *what, const OnError &on_error, Body body) {
        const detail::Result result = core_ ? core_->ask(body) : nobody();
        report(on_error, result.code(), what, result.reason);
    }

    /* Nothing to list is no error. */
    template <class Body>
    std::size_t list(const char *what, const OnError &on_error, Body body) {
        std::uint32_t count = 0;
        ask(what, on_error, [&] {
            const std::uint32_t status = body(&count);
            return status == NETCM_ERR_NOT_ACTIVE ? std::uint32_t{NETCM_SUCCESS} : status;
        });
        return count;
    }

    /* These two answer with a truth value and a status beside it. */
    static std::uint32_t setting_result(std::uint32_t (*function)(std::uint32_t, std::uint32_t *, std::uint32_t *),
                                        std::uint32_t key, std::uint32_t &value) {
        std::uint32_t status = NETCM_ERR_FAILURE;
        const std::uint32_t answer = function(key, &value, &status);
        return answer == 1 ? std::uint32_t{NETCM_SUCCESS} : answer == 0 ? status : answer;
    }

    template <class Wait>
    Connection make_connection(std::int32_t profile, const OnError &on_error, Wait wait) {
        const detail::UsePtr use = core_ ? core_->start_open(profile) : nullptr;
        std::error_code system;
        const detail::Result result = use ? wait(use, system) : nobody();
        if (!system && result.status == NETCM_SUCCESS)
            return Connection(core_, use);
        /* What comes too late is closed; nobody waits for that. */
        if (use)
            core_->want_close(use);
        const std::string name =
            profile == default_profile ? "the default profile" : "profile " + std::to_string(profile);
        report(on_error, system ? system : result.code(), "cannot open " + name, result.reason);
        return Connection();
    }

    void release() noexcept {
        if (const detail::Core::Ptr core = std::move(core_))
            core->leave(detail::Deadline(close_limit));
    }

    detail::Core::Ptr core_;
};

}  // namespace v1
}  // namespace quorvel

template <>
struct std::is_error_code_enum<quorvel::Status> : std::true_type {};
template <>
struct std::is_error_code_enum<quorvel::NameError> : std::true_type {};

#endif
