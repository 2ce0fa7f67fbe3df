#include "server/Subject.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <utility>

#include "control/place.h"

namespace quorvel::bench {
namespace {

constexpr int kPatience = 20'000;  // milliseconds

void must(bool good, const std::string& what) {
    if (!good)
        fail(what + ": " + std::strerror(errno));
}

Descriptor connected(const std::string& path) {
    Descriptor result(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return Descriptor();
    return result;
}

void write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        must(sent > 0, "cannot write to the server");
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

void read_all(int fd, char* bytes, size_t size) {
    while (size > 0) {
        pollfd waiting{fd, POLLIN, 0};
        must(poll(&waiting, 1, kPatience) == 1, "the server sends nothing");
        const ssize_t got = read(fd, bytes, size);
        must(got > 0, "cannot read from the server");
        bytes += got;
        size -= static_cast<size_t>(got);
    }
}

wire::Record read_record(int fd) {
    wire::Record record{};
    read_all(fd, reinterpret_cast<char*>(&record), sizeof(record));
    return record;
}

template <class T>
std::string_view bytes_of(const T& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

// Half of them lead to one access point, the other half are Wi-Fi, each by a link of its own.
std::string configuration(const Size& size) {
    std::string text =
        "[[network]]\napn = \"shared\"\nbearer = \"simulated\"\n"
        "[[network]]\nkind = \"wlan\"\ninterface = \"w0\"\n"
        "[[network]]\napn = \"lonely\"\nbearer = \"simulated\"\n";
    for (size_t i = 0; i < size.profiles; ++i) {
        const std::string number = std::to_string(i);
        text += "[[profile]]\nname = \"profile " + number + "\"\n";
        text += i % 2 == 0 ? "apn = \"shared\"\n"
                           : "kind = \"wlan\"\nessid = \"net " + number + "\"\ninterface = \"w" +
                                 std::to_string(i % size.links) + "\"\n";
    }
    return text;
}

// In nanoseconds.
int64_t processor_time(pid_t process) {
    clockid_t clock{};
    timespec time{};
    must(clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0, "no processor time");
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

void fail(const std::string& what) {
    std::fprintf(stderr, "quorvel-server-bench: %s\n", what.c_str());
    std::exit(2);
}

Descriptor::~Descriptor() {
    if (fd_ >= 0)
        close(fd_);
}
Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

Peer::Peer(const std::string& path) : sync_(connected(path)), async_(connected(path)) {
    must(sync_.get() >= 0 && async_.get() >= 0, "cannot connect");
    write_all(sync_.get(), bytes_of(wire::RequestHeader{wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 7}));
    const wire::Record answer = read_record(sync_.get());
    must(answer.Status == NETCM_SUCCESS, "the registration is refused");
    id_ = answer.Word1;
    write_all(async_.get(),
              bytes_of(wire::RequestHeader{wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, id_, 0, 0, 0}));
}

wire::Record Peer::ask(uint32_t command, uint32_t arg3, uint32_t arg4, std::string_view payload,
                       uint32_t param) {
    std::string request(bytes_of(wire::RequestHeader{command, param, id_, arg3, arg4, 0}));
    write_all(sync_.get(), request.append(payload));
    return read_record(sync_.get());
}

void Peer::skip(size_t bytes) {
    std::string block(bytes, '\0');
    read_all(sync_.get(), block.data(), block.size());
}

wire::Record Peer::event(size_t block) {
    wire::Record record = read_record(async_.get());
    while (record.Code == wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND)
        record = read_record(async_.get());
    std::string rest(block, '\0');
    read_all(async_.get(), rest.data(), rest.size());
    return record;
}

int32_t Peer::ask_pm(uint32_t command, int32_t profile, std::string_view data, uint32_t arg, uint32_t arg2) {
    const std::array<uint32_t, 5> words{command, static_cast<uint32_t>(profile), arg,
                                        static_cast<uint32_t>(data.size()), arg2};
    std::string payload(bytes_of(words));
    const wire::Record answer = ask(wire::NETPM_PROFILE_REQ, 0, 0, payload.append(data));
    must(answer.CallId == 0, "the profile manager refuses command " + std::to_string(command));
    skip(answer.Word5);
    return static_cast<int32_t>(answer.Word2);
}

void Peer::ask_app(uint32_t command, uint32_t id) {
    const std::array<uint32_t, 9> words{0, command, 0, id};
    ask(wire::NETPM_APPPROF_REQ, 0, 0, bytes_of(words));
}

uint32_t Peer::open(int32_t profile) {
    const wire::Record answer = ask(wire::NETCM_CLIENT_START_REQ, 0, static_cast<uint32_t>(profile));
    must(answer.Status == NETCM_SUCCESS, "profile " + std::to_string(profile) + " is not opened");
    must(event(sizeof(wire::ConnectionBlock)).Status == NETCM_SUCCESS, "a connection does not come up");
    return answer.CallId;
}

void Peer::close(uint32_t call, int32_t profile) {
    const wire::RequestHeader header{wire::NETCM_CLIENT_STOP_REQ,    0, id_, call,
                                     static_cast<uint32_t>(profile), 0};
    write_all(sync_.get(), bytes_of(header));
    must(event().Code == wire::NETCM_CLIENT_STOP_RSP, "a close is not answered");
}

Subject::Subject(const std::string& name, const Size& size, std::vector<std::string> options)
    : name_(name), size_(size), options_(std::move(options)), path_("/tmp/" + name + ".socket") {
    must(unshare(CLONE_NEWNET) == 0, "cannot make a network");
    network_ = Descriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    must(network_.get() >= 0, "cannot keep a network");
    make_links();
    start();
    for (size_t i = 0; i < size_.clients; ++i)
        peers_.push_back(std::make_unique<Peer>(path_));
}

Subject::~Subject() {
    unwatch();
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
}

void Subject::make_links() const {
    const std::string file = "/tmp/" + name_ + ".links";
    std::ofstream batch(file);
    batch << "link set lo up\n";
    for (size_t i = 0; i + 1 < size_.links; i += 2)
        batch << "link add w" << i << " type veth peer name w" << i + 1 << "\n";
    batch.close();
    must(std::system(("ip -batch " + file).c_str()) == 0, "cannot make links");
}

pid_t Subject::run(std::vector<std::string> words) const {
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int stream : {0, 1, 2})
            dup2(null, stream);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return child;
}

void Subject::start() {
    const std::string config = "/tmp/" + name_ + ".toml";
    std::ofstream(config) << configuration(size_);
    std::vector<std::string> words{
        CM_SERVER,       "--socket", path_, "--config", config, "--db", "/tmp/" + name_ + ".db",
        "--max-clients", "4096"};
    words.insert(words.end(), options_.begin(), options_.end());
    pid_ = run(words);
    for (int i = 0; i < 6000 && control_.get() < 0; ++i) {
        usleep(10'000);
        std::vector<std::string> tried;
        control_ = Descriptor(cm::connect_to_control(path_, tried));
    }
    must(control_.get() >= 0, "the server does not start");
    fcntl(control_.get(), F_SETFL, fcntl(control_.get(), F_GETFL) & ~O_NONBLOCK);
}

void Subject::drain() {
    std::array<char, 65536> bytes;
    for (const auto& peer : peers_)
        while (recv(peer->async_fd(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
}

void Subject::ctl(const std::string& json) {
    write_all(control_.get(), json + "\n");
    std::string line;
    for (char byte = 0; byte != '\n'; line += byte)
        read_all(control_.get(), &byte, 1);
    if (line.find("\"ok\":true") == std::string::npos)
        fail("ctl: " + line);
}

void Subject::enter() const {
    must(setns(network_.get(), CLONE_NEWNET) == 0, "cannot enter a network");
}

void Subject::set_link(bool up) const {
    const Descriptor here(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "w1");
    request.ifr_flags = up ? IFF_UP : 0;
    must(ioctl(here.get(), SIOCSIFFLAGS, &request) == 0, "cannot change a link");
}

int64_t Subject::used() const {
    return processor_time(pid_);
}

int64_t Subject::used_by_child() const {
    const std::string pid = std::to_string(pid_);
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    pid_t child = 0;
    return children >> child ? processor_time(child) : 0;
}

void Subject::watch() {
    monitor_ = run({CM_SERVER, "--socket", path_, "monitor"});
    // It has nothing to show before somebody asks; by then it watches.
    usleep(500'000);
}

void Subject::unwatch() {
    if (monitor_ <= 0)
        return;
    kill(monitor_, SIGTERM);
    waitpid(std::exchange(monitor_, -1), nullptr, 0);
}

}  // namespace quorvel::bench
