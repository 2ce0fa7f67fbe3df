// The trace numbers and the file logger of applications.
#include "quorvel/NetDebug.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "common/Descriptor.h"
#include "common/Trace.h"

using quorvel::at_least;
using quorvel::kLowestDescriptor;
using quorvel::level_mask;

namespace {

constexpr char kLogPath[] = "/tmp/dnetlog";
constexpr char kOpenError[] = "Error opening log file";

// The handle that NetCloseLogfile has closed and left in `logfile`: nothing may be done with it any more.
FILE* closed_handle = nullptr;

bool is_open() {
    return logfile != nullptr && logfile != closed_handle;
}

// Like fopen. A descriptor of a standard stream that the application has closed stays free: what goes to
// standard output would go into the file. And an application that starts another program does not hand the
// file on.
FILE* open_log(int flags, const char* mode) {
    const int fd = at_least(kLowestDescriptor, open(kLogPath, O_RDWR | O_CREAT | O_CLOEXEC | flags, 0666));
    if (fd < 0)
        return nullptr;
    FILE* opened = fdopen(fd, mode);
    if (opened == nullptr)
        close(fd);
    if (opened == closed_handle)
        closed_handle = nullptr;
    return opened;
}

const char* base_name(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

extern "C" {

FILE* logfile = nullptr;

uint32_t GenerateMidInfo(uint32_t module, uint32_t) {
    return module;
}

uint32_t GenerateLevelInfo(uint32_t level) {
    const uint32_t mask = level_mask(level);
    if (mask == 0)
        puts("Unknown debug level... never come here");
    return mask;
}

void NetDebugPrint(const char* file, int line, const char* format, ...) {
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
    if (is_open()) {
        fputs(text, logfile);
    } else if (logfile == nullptr) {
        // The line in hand is not repeated into the file that it opens: the file begins with the next one.
        logfile = open_log(O_APPEND, "a+");
        if (logfile == nullptr)
            puts(kOpenError);
    }
    free(text);
    free(message);
}

int NetCleanLogfile(void) {
    if (is_open())
        fclose(logfile);
    logfile = open_log(O_TRUNC, "w+");
    if (logfile != nullptr) {
        const char zero = 0;
        fwrite(&zero, 1, 1, logfile);
        fclose(logfile);
    }
    logfile = open_log(O_APPEND, "a+");
    if (logfile == nullptr)
        return puts(kOpenError);
    return fflush(logfile);
}

int NetCloseLogfile(void) {
    // The handle stays as it was; NetCleanLogfile replaces it.
    if (!is_open())
        return 0;
    closed_handle = logfile;
    return fclose(logfile);
}

}  // extern "C"
