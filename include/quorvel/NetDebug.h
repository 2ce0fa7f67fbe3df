/* The trace convention, and a small file logger for applications.
 *
 * 1. Every line that the library traces goes to the platform's `_debug_message` with the module identifier
 *    0x05000100 and a level mask; the first two functions below make these two numbers.
 * 2. The file logger (`NetDebugPrint`, `NetCleanLogfile`, `NetCloseLogfile`) is for applications: the library
 *    never calls it. It writes to standard output and to "/tmp/dnetlog".
 * 3. The file logger has no lock. Threads that share it serialise their calls themselves.
 */
#ifndef QUORVEL_NETDEBUG_H
#define QUORVEL_NETDEBUG_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QUORVEL_PRINTF(format_index, first) __attribute__((format(printf, format_index, first)))
#else
#define QUORVEL_PRINTF(format_index, first)
#endif

/* The module identifier of a trace line: `module` as it is. `level` is accepted and ignored. */
uint32_t GenerateMidInfo(uint32_t module, uint32_t level);

/* The platform's mask of a trace level.
 *
 *   level    0 to 3: 0x4000000 (traces, events, failures of the link), 4: 0x2000000 (resources exhausted,
 *            internal errors), 5: 0x1000000 (errors of the caller)
 *
 * Any other level writes "Unknown debug level... never come here" and a line end to standard output and
 * gives 0. */
uint32_t GenerateLevelInfo(uint32_t level);

/* The open log file, or null before the first use. `NetCloseLogfile` closes it and leaves the handle as it was:
 * call `NetCleanLogfile` before printing again. */
extern FILE *logfile;

/* Prints one line, "[base name][Ln:line] message", to standard output, which is flushed, and appends it to the
 * log file. No line end is added.
 *
 *   file     source path; only the text after the last "/" is printed
 *   line     line number, right-aligned in four columns
 *   format   printf format of the message, with its values behind it
 *
 * When no log file is open, "/tmp/dnetlog" is opened for appending and kept open, but this first line goes to
 * standard output alone. When it cannot be opened, "Error opening log file" is printed. A message for which
 * there is no memory is not printed. */
void NetDebugPrint(const char *file, int line, const char *format, ...) QUORVEL_PRINTF(3, 4);

/* Empties "/tmp/dnetlog", writes a single byte of value 0 to it and leaves it open for appending.
 *
 * Returns the result of the last stdio call: that of the flush (0 on success), or, when the file cannot be
 * opened, that of the `puts` which says "Error opening log file". */
int NetCleanLogfile(void);

/* Closes the log file. Returns the result of `fclose`, or 0 when no file is open. */
int NetCloseLogfile(void);

#ifdef __cplusplus
}
#endif

#endif
