/* libappmgr-ids.so.0: the id of the calling application, as a system without an application manager has it.
 *
 *   QUORVEL_APP_ID  the application's id, a decimal number of 32 bits with an optional minus sign, and
 * nothing else. Read at every request; not in a program that runs with raised privileges. */
#ifndef QUORVEL_PLATFORM_APPMGR_IDS_H
#define QUORVEL_PLATFORM_APPMGR_IDS_H

#ifdef __cplusplus
extern "C" {
#endif

/* The id of the calling application.
 *   appId  receives the id; untouched on failure
 *   error  receives an error number on failure, untouched on success; may be null:
 *          ENOENT  the environment names no id
 *          EINVAL  QUORVEL_APP_ID is no number, or appId is null
 *          ERANGE  it does not fit 32 bits
 * Result: 1, or 0 on failure. */
int app_get_current_id(int* appId, int* error);

#ifdef __cplusplus
}
#endif

#endif
