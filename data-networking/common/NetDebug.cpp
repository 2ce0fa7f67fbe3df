// The trace numbers and the file logger of applications.
#include "quorvel/NetDebug.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "common/Trace.h"

using quorvel::level_mask;

namespace {

constexpr char kLogPath[] = "/tmp/dnetlog";
constexpr char kOpenError[] = "Error opening log file";

// The handle that NetCloseLogfile has closed and left in `logfile`: nothing may be done with it any more.
FILE* closed_handle = nullptr;

bool is_open() {
    return logfile != nullptr && logfile != closed_handle;
}

// "e" in the mode: an application that starts another program does not hand the log file on.
FILE* open_log(const char* mode) {
    FILE* opened = fopen(kLogPath, mode);
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
        logfile = open_log("a+e");
        if (logfile == nullptr)
            puts(kOpenError);
    }
    free(text);
    free(message);
}

int NetCleanLogfile(void) {
    if (is_open())
        fclose(logfile);
    logfile = open_log("w+e");
    if (logfile != nullptr) {
        const char zero = 0;
        fwrite(&zero, 1, 1, logfile);
        fclose(logfile);
    }
    logfile = open_log("a+e");
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
