/* libevtsys.so.0: the system's notifications, as a system without a notification service has them.
 *
 * A published event reaches whoever wants to see it:
 *
 *   QUORVEL_EVENTS  a datagram socket that somebody has bound, or a file that lines are appended to; the file
 * is created for its owner when it is not there. Read at every event; not in a program that runs with raised
 * privileges.
 *
 * An event is one line, and to a socket one datagram: time (UTC), process id, name.
 *
 *   2026-11-21T08:15:30.123456Z 4242 Sync.Noti.CMServer
 *
 * Publishing never waits: an event that finds nobody listening, or a socket that is full, is lost, and has
 * been published all the same. */
#ifndef QUORVEL_PLATFORM_EVTSYS_H
#define QUORVEL_PLATFORM_EVTSYS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Whether the process has opened the notification service. `handle` is a handle, or null for the process's
 * own. Result: 1 when it has, else 0. */
int EvtSysEventHandleExist(void* handle);

/* Opens the notification service for the process, once for all its threads.
 *   handle  receives the handle, which is never closed
 * Result: 0, or EINVAL when `handle` is null. */
int EvtSysLibraryOpen(void** handle);

/* Publishes an event; errno is kept.
 *   handle  a handle, or null for the process's own
 *   name    the event's name
 * Result: 0, or EINVAL when `name` is null or empty. */
int EvtSysEventPublish(void* handle, const char* name);

#ifdef __cplusplus
}
#endif

#endif
