/* The trace convention, and a small file logger for applications.
 *
 * 1. Every line that the library traces goes to the platform's `_debug_message` with the module identifier
 *    0x05000100 and a level mask; the first two functions below make these two numbers.
 * 2. The file logger (`NetDebugPrint`, `NetCleanLogfile`, `NetCloseLogfile`) is for applications: the library
 *    never calls it. It writes to standard output and to "/tmp/dnetlog".
 * 3. Threads. The functions of the file logger may be called from any thread at any time. Who sets `logfile` does so
 *    while no other thread uses the file logger.
 * 4. What blocks. A line waits for standard output and for the log file to take it, as long as they need; while the
 *    file takes one, other threads that come to it wait.
 * 5. Fork. Parent and child both go on appending; as with every stream, what has not been flushed before the fork is
 *    in both.
 * 6. Cancellation. A thread that is cancelled (pthread_cancel, deferred) while it is in one of these functions is
 *    cancelled at the first cancellation point after it has returned.
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

/* ---------------------------------------------------------------------------------------------------------------
 * The numbers of a trace line */

/* Makes the module identifier of a trace line.
 *
 *   module   the identifier
 *   level    accepted and ignored
 *
 * Returns `module` as it is. */
uint32_t GenerateMidInfo(uint32_t module, uint32_t level);

/* Makes the platform's mask of a trace level.
 *
 *   level    0 to 3: traces, events, failures of the link; 4: resources exhausted, internal errors; 5: errors of the
 *            caller
 *
 * Any other level writes "Unknown debug level... never come here" and a line end to standard output.
 *
 * Returns 0x4000000 for the levels 0 to 3, 0x2000000 for 4, 0x1000000 for 5, and 0 for any other. */
uint32_t GenerateLevelInfo(uint32_t level);

/* ---------------------------------------------------------------------------------------------------------------
 * The file logger */

/* The open log file, or null before the first use. `NetCloseLogfile` closes it and leaves the handle as it was:
 * call `NetCleanLogfile` before printing again; lines until then go to standard output alone.
 *
 * An application may put a stream of its own here. It is written to, and closed by `NetCloseLogfile` alone: it is
 * still open after `NetCleanLogfile` has put the library's file in its place. Whoever replaces the library's file has
 * closed it before, with `NetCloseLogfile`. */
extern FILE *logfile;

/* Prints one line, "[base name][Ln:line] message", to standard output, which is flushed, and appends it to the
 * log file. No line end is added.
 *
 *   file     source path; only the text behind the last "/" is printed
 *   line     line number, right-aligned in four columns
 *   format   printf format of the message, with its values behind it
 *
 * When no log file is open, "/tmp/dnetlog" is opened for appending and kept open, but this first line goes to
 * standard output alone. When it cannot be opened, "Error opening log file" is printed. It is opened only when it is
 * a regular file: a link or a pipe of that name is neither followed nor waited for. A message for which
 * there is no memory is not printed. */
void NetDebugPrint(const char *file, int line, const char *format, ...) QUORVEL_PRINTF(3, 4);

/* Empties "/tmp/dnetlog", writes a single byte of value 0 to it and leaves it open for appending. The library's open
 * file is closed before.
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
