// The trace numbers and the file logger of applications.
#include "quorvel/NetDebug.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/CancelHold.h"
#include "common/Descriptor.h"
#include "common/Exported.h"
#include "common/Lock.h"
#include "common/LogFile.h"
#include "common/Trace.h"

using namespace quorvel;

extern "C" {
FILE* logfile = nullptr;
}

FILE** quorvel::exported::log_file = &logfile;

namespace {

constexpr char kLogPath[] = "/tmp/dnetlog";
constexpr char kOpenError[] = "Error opening log file";

// Ours, set beside a file that only we open with it: it does nothing to a regular file.
constexpr int kMark = O_NONBLOCK;

FILE*& log_file() {
    return *exported::log_file;
}

// Guards what follows and our use of `logfile`, which the application may set as well.
Mutex log_lock;

// The file that the library has opened last. Only that one is ever replaced and closed: the application may
// have put one of its own into `logfile`, and be it that it has closed ours and got the same address.
struct OwnFile {
    FILE* handle = nullptr;
    int fd = -1;
};
OwnFile own QV_GUARDED_BY(log_lock);

// The handle that NetCloseLogfile has closed and left in `logfile`: nothing may be written to it any more. It
// keeps its block until `logfile` is set anew, so that no other stream has its address.
FILE* closed QV_GUARDED_BY(log_lock) = nullptr;
bool closed_has_block QV_GUARDED_BY(log_lock) = false;

bool is_open() QV_REQUIRES(log_lock) {
    return log_file() != nullptr && log_file() != closed;
}

bool is_own() QV_REQUIRES(log_lock) {
    return is_open() && log_file() == own.handle && fileno(log_file()) == own.fd &&
           (fcntl(own.fd, F_GETFL) & kMark) != 0;
}

void forget_closed() QV_REQUIRES(log_lock) {
    FILE* handle = std::exchange(closed, nullptr);
    if (std::exchange(closed_has_block, false))
        fclose(handle);
}

bool is_regular_file(int fd) {
    struct stat status {};
    fstat(fd, &status);  // of what is not open, it says nothing
    return S_ISREG(status.st_mode);
}

enum class Contents { Kept, Dropped };

// Everybody may write to /tmp: what stands in the place of the file and is none, a link or a pipe, is neither
// followed nor waited for. A descriptor of a standard stream that the application has closed stays free: what
// goes to standard output would go into the file. And an application that starts another program does not
// hand the file on.
int open_descriptor(int flags, Contents contents) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | kMark;
    const int fd = at_least(kLowestDescriptor, open(kLogPath, kFlags | flags, 0666));
    if (fd < 0)
        return -1;
    if (is_regular_file(fd) && (contents == Contents::Kept || ftruncate(fd, 0) == 0))
        return fd;
    close(fd);
    return -1;
}

// Like fopen.
FILE* open_log(int flags, Contents contents, const char* mode) {
    const int fd = open_descriptor(flags, contents);
    FILE* opened = fd >= 0 ? fdopen(fd, mode) : nullptr;
    if (opened == nullptr && fd >= 0)
        close(fd);
    return opened;
}

// Opens the file for appending, in `logfile`.
bool open_own() QV_REQUIRES(log_lock) {
    log_file() = open_log(O_APPEND, Contents::Kept, "a+");
    own = {log_file(), log_file() != nullptr ? fileno(log_file()) : -1};
    forget_closed();
    return log_file() != nullptr;
}

void empty_file() {
    FILE* file = open_log(0, Contents::Dropped, "w+");
    if (file == nullptr)
        return;
    const char zero = 0;
    fwrite(&zero, 1, 1, file);
    fclose(file);
}

// Like fclose, but for the block of the handle.
int close_keeping_block(FILE* handle) {
    const int flushed = fflush(handle);
    const int result = close(std::exchange(handle->_fileno, -1));
    return flushed == 0 && result == 0 ? 0 : EOF;
}

// Appends a line to the file, or opens it: the line in hand is not repeated into the file that it opens,
// which begins with the next one. False when it cannot be opened.
bool keep_line(const char* text) {
    const Lock lock(log_lock);
    if (is_open())
        fputs(text, log_file());
    return log_file() != nullptr || open_own();
}

const char* base_name(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

// The lock may be another thread's, which is not in this process.
void quorvel::log_file_in_child() QV_NO_THREAD_SAFETY_ANALYSIS {
    log_lock.unlock();
}

extern "C" {

uint32_t GenerateMidInfo(uint32_t module, uint32_t) {
    return module;
}

uint32_t GenerateLevelInfo(uint32_t level) {
    const uint32_t mask = level_mask(level);
    if (mask != 0)
        return mask;
    const CancelHold hold;
    puts("Unknown debug level... never come here");
    return 0;
}

void NetDebugPrint(const char* file, int line, const char* format, ...) {
    const CancelHold hold;
    char* message = nullptr;
    va_list values;
    va_start(values, format);
    const int formatted = vasprintf(&message, format, values);
    va_end(values);
    if (formatted < 0)
        return;

    char* text = nullptr;
    if (asprintf(&text, "[%s][Ln:%4d] %s", base_name(file), line, message) < 0) {
        free(message);
        return;
    }
    fputs(text, stdout);
    fflush(stdout);
    if (!keep_line(text))
        puts(kOpenError);
    free(text);
    free(message);
}

int NetCleanLogfile(void) {
    const CancelHold hold;
    {
        const Lock lock(log_lock);
        if (is_own())
            fclose(log_file());
        empty_file();
        if (open_own())
            return fflush(log_file());
    }
    return puts(kOpenError);
}

int NetCloseLogfile(void) {
    const CancelHold hold;
    const Lock lock(log_lock);
    // The handle stays as it was; NetCleanLogfile replaces it.
    if (!is_open())
        return 0;
    forget_closed();
    closed = log_file();
    closed_has_block = fileno(closed) >= 0;
    return closed_has_block ? close_keeping_block(closed) : fclose(closed);
}

}  // extern "C"
