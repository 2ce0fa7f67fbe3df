/* libdebug-message-setting.so.0: the sink of trace lines, as a system without the handset's own has it.
 *
 * Silent unless the process is started with
 *
 *   QUORVEL_TRACE       how much is written:
 *                         off       nothing (as when it is not set)
 *                         error     what callers do wrong
 *                         resource  the same, and resources that ran out and internal errors
 *                         all       everything
 *   QUORVEL_TRACE_FILE  the file that lines are appended to; created for its owner when it is not there.
 *                       Standard error when it is not set, or when the file cannot be written.
 *
 * Both are read once, when the library is loaded, and not at all in a program that runs with raised
 * privileges. A value of QUORVEL_TRACE that is none of these is reported on standard error, and nothing is
 * traced.
 *
 * A line reads: time (UTC), process/thread, level, file:line, text.
 *
 *   2026-11-21T08:15:30.123456Z 4242/4243 error data-networking/client/CM/src/NetCMIntf:71 Invalid input
 * parameter
 *
 * It is written by one write call, so that the lines of threads and processes do not mix; it is cut after
 * 1023 bytes, and control characters in it become blanks. A file is opened for each line, so it can be moved
 * away at any time and no descriptor of the process is held. */
#ifndef QUORVEL_PLATFORM_DEBUG_MESSAGE_H
#define QUORVEL_PLATFORM_DEBUG_MESSAGE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Traces one message; any thread, no lock, errno kept.
 *   line, file  the place that traces
 *   mid         module identifier; every module is treated alike
 *   level       level mask: 0x1000000 error, 0x2000000 resource, 0x4000000 trace; 0 is never written
 *   format      printf format, with its values behind it; a newline at its end is optional
 * Result: 1 when the line was written, 0 when it was filtered out, -1 when it could not be written. */
int _debug_message(int line, const char* file, uint32_t mid, uint32_t level, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif

#endif
