/* What the parts of the binding know of one another's. */
#ifndef QUORVEL_PYTHON_CLIENT_H
#define QUORVEL_PYTHON_CLIENT_H

#include <netdb.h>

#include "mailbox.h"

/* A request of a client. */
typedef struct qv_job {
    struct qv_job* next;
    int64_t client;
    int operation;
    uint64_t request;
    qv_mailbox* answers; /* held; null: nobody waits */
    int32_t a;
    uint32_t b;
    uint32_t key;         /* what its answer will name: a request id, a profile, a lookup's id */
    qv_message* early;    /* that answer, when it has come before the key was known */
    uint32_t data_length; /* and a NUL behind the data */
    unsigned char data[];
} qv_job;

/* A message's data while an operation writes them. */
typedef struct qv_output {
    unsigned char* data;
    size_t length;
} qv_output;

/* Room for the longest answer, that of NetPMReadPartialProfileInfo. */
#define QV_OUTPUT_ROOM 4096

/* Asks the library, on the client's own thread. For all operations but those that are answered by an event.
 */
uint32_t qv_perform(const qv_job* job, qv_output* out);

/* Starts a lookup. 0: started; 1: there is no room now; else refused for good. */
enum qv_lookup_start { QV_LOOKUP_STARTED, QV_LOOKUP_WAITS, QV_LOOKUP_WRONG };
enum qv_lookup_start qv_look_up(qv_job* job);
void qv_names_in_child(void);

/* With the lock: the answer of a job goes to whoever waits, and the job is done. */
void qv_answer(qv_job* job, qv_message* answer, uint32_t status);
/* A lookup has ended, and its place among the library's is free: those that wait are tried again. */
void qv_room_for_lookups(void);

#endif
