// quorvel-isolate [--keep PATH]... -- PROGRAM [ARGUMENT]...
//
// Runs a program in a mount and a network namespace of its own: an empty /tmp, because the server's socket
// and the log file have fixed paths there, and a loopback device that is up. What lies below /tmp and is
// named by
// --keep stays reachable. Without root, a user namespace makes this possible. The program takes this process
// over, so its exit code is the program's own; it ends with the process that started it.
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kLauncherFailed = 125;

struct KeptFolder {
    std::string path;
    int fd = -1;
};

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "quorvel-isolate: %s: %s\n", what.c_str(), strerror(errno));
    exit(kLauncherFailed);
}

void write_file(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        fail(path);
    close(fd);
}

void enter_namespaces() {
    const unsigned uid = geteuid();
    const unsigned gid = getegid();
    const int user = uid == 0 ? 0 : CLONE_NEWUSER;
    if (unshare(user | CLONE_NEWNS | CLONE_NEWNET) != 0)
        fail("cannot create a mount and a network namespace (as root, or with unprivileged user namespaces)");
    if (user == 0)
        return;
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

// The folder below /tmp that holds the path, or nothing when the path lies elsewhere.
std::string folder_below_tmp(const char* path) {
    char resolved[PATH_MAX];
    if (realpath(path, resolved) == nullptr || strncmp(resolved, "/tmp/", 5) != 0)
        return {};
    const std::string whole = resolved;
    return whole.substr(0, whole.find('/', 5));
}

void keep(std::vector<KeptFolder>& kept, const char* path) {
    const std::string folder = folder_below_tmp(path);
    if (folder.empty())
        return;
    for (const KeptFolder& other : kept)
        if (other.path == folder)
            return;
    kept.push_back({folder});
}

// In the namespace already: what was opened in the old one belongs to its mounts, which cannot be bound here.
void open_folders(std::vector<KeptFolder>& kept) {
    for (KeptFolder& folder : kept) {
        folder.fd = open(folder.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (folder.fd < 0)
            fail(folder.path);
    }
}

void replace_tmp(std::vector<KeptFolder>& kept) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        fail("cannot make the mounts private");
    open_folders(kept);
    if (mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0)
        fail("cannot mount an empty /tmp");
    for (const KeptFolder& folder : kept) {
        const std::string source = "/proc/self/fd/" + std::to_string(folder.fd);
        if (mkdir(folder.path.c_str(), 0755) != 0 ||
            mount(source.c_str(), folder.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
            fail("cannot keep " + folder.path);
    }
}

void bring_loopback_up() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (fd < 0 || ioctl(fd, SIOCSIFFLAGS, &request) != 0)
        fail("cannot bring the loopback device up");
    close(fd);
}

void die_with(pid_t parent) {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        fail("cannot ask to end with the parent");
    if (getppid() != parent)
        raise(SIGKILL);
}

[[noreturn]] void usage() {
    fputs("usage: quorvel-isolate [--keep PATH]... -- PROGRAM [ARGUMENT]...\n", stderr);
    exit(kLauncherFailed);
}

}  // namespace

int main(int argc, char** argv) {
    const pid_t parent = getppid();
    std::vector<KeptFolder> kept;
    int next = 1;
    for (; next + 1 < argc && strcmp(argv[next], "--keep") == 0; next += 2)
        keep(kept, argv[next + 1]);
    if (next + 1 >= argc || strcmp(argv[next], "--") != 0)
        usage();
    char** program = argv + next + 1;
    keep(kept, program[0]);
    keep(kept, ".");
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr)
        fail("cannot tell the working folder");

    enter_namespaces();
    replace_tmp(kept);
    bring_loopback_up();
    // The old working folder is below the /tmp that is now covered.
    if (chdir(folder) != 0 && chdir("/") != 0)
        fail("cannot return to the working folder");
    // What else of a server has its place outside of /tmp is put there, too.
    setenv("RUNTIME_DIRECTORY", "/tmp/quorvel-run", 1);
    // Debian's users do not have what an administrator runs, and tests run it.
    const char* path = getenv("PATH");
    setenv("PATH", ((path != nullptr ? path : "/usr/bin:/bin") + std::string(":/usr/sbin:/sbin")).c_str(), 1);
    die_with(parent);
    execvp(program[0], program);
    fail(program[0]);
}
