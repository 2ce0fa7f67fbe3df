/* What the Python package calls: registrations of its own, and mailboxes for what comes of them.
 *
 * 1. The library registers threads. A client of the package is a small thread of its own (an agent) that
 * registers, runs the client's requests one after another, and deregisters before it ends. Python's threads
 * stay Python's: any of them may use any client.
 * 2. No thread of the library's or of ours ever runs Python or waits for its lock. What a callback gets is
 * copied into a mailbox, which is a queue with a descriptor that is readable while something is in it. An
 * interpreter that ends, a loop that is closed and a thread that is gone leave a queue behind, and nobody
 * waiting.
 * 3. In the child of a fork there are no clients, and the mailboxes of the parent are dead: nothing is read
 * from their descriptors, which the parent shares.
 */
#ifndef QUORVEL_PYTHON_BINDING_H
#define QUORVEL_PYTHON_BINDING_H

#include <stdint.h>

/* What a client can be asked. The arguments `a` and `b` and the bytes `data` of a request are named behind
 * each, and what its answer carries behind the arrow. */
enum qv_operation {
    QV_OPEN,  /* a: profile, 0: the default one; the route's mailbox gets its events */
    QV_CLOSE, /* a: profile */
    QV_KILL,  /* a: profile; answered when the kill has been */
    QV_CLEANUP,
    QV_TUNNEL, /* a: Param, data -> the answer's data */
    QV_TUNNEL_REGISTER,
    QV_TUNNEL_DEREGISTER,
    QV_GET_SETTING,         /* a: key -> u32 */
    QV_SET_SETTING,         /* a: key, b: value */
    QV_NETWORK_STATUS,      /* a: interface -> u32 */
    QV_GET_PACKET_DATA,     /* -> u32 */
    QV_SET_PACKET_DATA,     /* a: state */
    QV_INTERFACES,          /* -> u32 */
    QV_RESET_STATISTICS,    /* a: level */
    QV_STATISTICS,          /* -> 6 u32 */
    QV_ACTIVE_PROFILES,     /* -> i32 each */
    QV_ACTIVE_NAMES,        /* -> 100 bytes each */
    QV_ACTIVE_CONNECTIONS,  /* a: interface -> 176 bytes each */
    QV_ADD_PROFILE,         /* data: NetPMProfile -> i32 */
    QV_CHANGE_PROFILE,      /* a: profile, data: NetPMProfile */
    QV_DELETE_PROFILE,      /* a: profile */
    QV_READ_PROFILE,        /* a: profile -> NetPMProfile */
    QV_PROFILE_STATUS,      /* a: profile -> u32 */
    QV_PROFILE_ATTRIBUTES,  /* a: profile -> u32 */
    QV_DEFAULT_PROFILE,     /* -> NetPMProfile */
    QV_DEFAULT_PROFILE_ID,  /* -> i32 */
    QV_SET_DEFAULT_PROFILE, /* a: profile */
    QV_PROFILE_IDS,         /* a: type -> i32 each */
    QV_PROFILE_LIST,        /* a: type -> NetPMPartialProfile each */
    QV_FIND_PROFILES,       /* a: 0 APN, 1 ESSID, data: text -> i32 each */
    QV_RESTORE_PROFILES,
    QV_ADD_APPLICATION, /* a: application -> u32: 1 or 0; the same for the next two */
    QV_DELETE_APPLICATION,
    QV_CHECK_APPLICATION,
    QV_READ_APPLICATION,        /* a: application -> NetPMAppProf */
    QV_CHANGE_APPLICATION,      /* a: application, data: NetPMAppProf */
    QV_SET_APPLICATION_PROFILE, /* a: application, b: profile */
    QV_PROPER_PROFILE,          /* a: application -> u32 */
    QV_CHANGE_PAYMENT,          /* data: two texts */
    QV_LOOK_UP,                 /* a: profile, data: name -> struct qv_host, addresses, texts */
    QV_OPERATIONS
};

/* A name is not found, or is not looked up now. */
enum qv_lookup_status { QV_FOUND = 0, QV_NOT_FOUND = 1, QV_LOOKUP_REFUSED = 2 };

/* The head of a host: behind it `addresses` of 4 bytes, and `names` texts with their NUL, its own name first.
 */
typedef struct qv_host {
    uint32_t addresses;
    uint32_t names;
} qv_host;

/* What comes in a mailbox: the answer of a request, or an event. Owned by whoever has taken it. */
typedef struct qv_message {
    struct qv_message* next;
    uint64_t request; /* whose answer it is; 0: an event */
    uint32_t status;  /* of an answer; of an event its type */
    int32_t profile;  /* of an event */
    int32_t result;   /* of an event */
    int32_t reason;   /* the server's reason word; -1: none */
    uint32_t id;      /* of tunnel data */
    uint32_t length;  /* of data */
    unsigned char data[];
} qv_message;

typedef struct qv_mailbox qv_mailbox;

/* A mailbox; null and errno when there is no descriptor or memory. */
qv_mailbox* qv_mailbox_open(void);
int qv_mailbox_descriptor(const qv_mailbox* box);
/* 0 in the child of the process that has opened it. */
int qv_mailbox_is_ours(const qv_mailbox* box);
/* The oldest message; null when there is none. `lost` receives how many events found no room since the last
 * time. */
qv_message* qv_mailbox_take(qv_mailbox* box, uint32_t* lost);
void qv_mailbox_close(qv_mailbox* box);
void qv_message_free(qv_message* message);

/* Starts a client: its number, above 0, or a status below 0 (negated; -errno - 1000 when there is no thread).
 * Whether it has registered comes as the answer to `request` into `answers`; its events come into `events`.
 */
int64_t qv_client_start(qv_mailbox* events, qv_mailbox* answers, uint64_t request);

/* Puts a request behind the others of the client. Returns 0 or a status; the answer comes into `answers`,
 * which may be null. `route` is for QV_OPEN. */
uint32_t qv_client_ask(int64_t client, int operation, int32_t a, uint32_t b, const void* data,
                       uint32_t length, qv_mailbox* answers, uint64_t request, qv_mailbox* route);

/* Nobody waits any more for the answer of a kill or a tunnel request. */
void qv_client_forget(int64_t client, uint64_t request);

/* Nobody wants the connection of this route any more: it is closed as soon as it can be, and nobody waits. */
void qv_client_abandon(int64_t client, qv_mailbox* route);

/* Ends a client behind its requests: closes what it has open, waits for the server, and deregisters. Nobody
 * waits for it; where `answers` is not null, the answer says when it is done. Returns 0 or a status. */
uint32_t qv_client_end(int64_t client, qv_mailbox* answers, uint64_t request);

#endif
