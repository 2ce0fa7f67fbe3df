/* Connections: registration, opening and closing, and what the CM server tells about them.
 *
 * Rules that hold for every function of this header:
 *
 *  1. Results. A function returns NETCM_SUCCESS (0), a status of this header, or, when the CM server has refused
 *     the request, the server's own status word unchanged.
 *  2. Registration is per thread. A thread registers itself with a callback, then opens and closes connections;
 *     the library knows it by its kernel thread id. Up to 16 threads of a process may register.
 *  3. What blocks. A request waits for the server's answer, at most 60 seconds for the whole of it (10 seconds for a
 *     block behind it). Requests are served one after another. With no server there, the repair of the link takes three
 *     seconds and gives NETCM_ERR_REREGISTER_FAILED. A wait that a signal handler interrupts is not resumed: the
 *     request fails with NETCM_ERR_FAILURE, and its answer is never taken for another's. An answer that does not come,
 *     or a request cut short, ends the link as in rule 7. Nobody is cancelled (pthread_cancel) inside, but behind it.
 *  4. Callbacks run on the library's receiver thread or on a short-lived thread of the library, never on the
 *     thread that asked, with NetCMAppMutex held, and so one at a time (rule 7 has the exception). A callback
 *     that blocks holds up every request and event. It may call any function, and deregister the last thread: the
 *     receiver ends when it returns. It must return: pthread_exit and jumping out of the library are forbidden.
 *     The library's threads inherit the signal mask of the thread that starts them.
 *  5. Ownership. An event and everything that it points to live on the library's side and only during the
 *     callback: copy what is needed. Arguments belong to the caller and are not kept, except the callback itself.
 *  6. fork. In the child the library is as never registered: its descriptors are closed, its locks are free, and a
 *     registration is one of the child's own; the parent notices nothing. dlclose leaves the library where it is.
 *  7. When the server dies, every connection ends once with a NETCM_EVENT_STOP_IND with Result 2, delivered
 *     without NetCMAppMutex, since a request may hold it; kills, tunnel requests and queries that wait are forgotten.
 *     Threads stay registered; the next request registers the process with the server again. Until it has been told,
 *     a thread that deregisters waits, a second at most, and is then given NETCM_ERR_ALREADY_EXISTS.
 *  8. A server that has closed its end never kills the process: no SIGPIPE leaves the library. Every descriptor
 *     that the library opens is close-on-exec and above 2.
 */
#ifndef QUORVEL_NETCM_H
#define QUORVEL_NETCM_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------------------------
 * Statuses and network interfaces */

/* What a function returns, beside the server's own status words (rule 1). */
enum NetCMStatus {
    NETCM_SUCCESS = 0,                        /* done, or accepted */
    NETCM_ERR_FAILURE = 1,                    /* the exchange with the server failed, or memory ran out */
    NETCM_ERR_REREGISTER_FAILED = 2,          /* the link to the server is broken and could not be repaired */
    NETCM_ERR_ALREADY_REGISTERED = 3,         /* the calling thread is already registered */
    NETCM_ERR_REREGISTER_RETRY_EXHAUSTED = 4, /* the link could not be set up in three attempts */
    NETCM_ERR_NO_FREE_ENTRY = 5,              /* 16 threads are registered already */
    NETCM_ERR_NOT_REGISTERED = 6,             /* the process or the calling thread is not registered, or has no call */
    NETCM_ERR_INVALID_PROFILE = 7,            /* invalid profile id */
    NETCM_ERR_NOT_ACTIVE = 9,                 /* no such connection, or the calling thread does not use it */
    NETCM_ERR_ALREADY_EXISTS = 10,            /* the calling thread already has this connection, or still has one */
    NETCM_ERR_CLOSING = 11,                   /* the calling thread has already asked to kill this connection */
    NETCM_ERR_CALL_CLOSING = 13,              /* the connection is being closed */
    NETCM_ERR_MAX_LIMIT = 14,                 /* no room for another thread or profile on this connection */
    NETCM_ERR_NO_FREE_KILL_ENTRY = 16,        /* four kills are pending already */
    NETCM_ERR_NO_FREE_TUNNEL_ENTRY = 17,      /* twenty tunnel requests are pending already */
    NETCM_ERR_INVALID_PARAM = 19              /* a null pointer or an argument out of range */
};

/* Network interfaces; lists of interfaces are masks of these values. */
enum NetIface {
    NETCM_IFACE_PDP = 1, /* packet data */
    NETCM_IFACE_WIFI = 2 /* Wi-Fi */
};

/* ---------------------------------------------------------------------------------------------------------------
 * Events and what they point to
 *
 * Set by the library. */

/* An address record. */
typedef struct NetCMAddr {
    uint32_t Type;    /* 0: IPv4 */
    uint8_t Addr[16]; /* for IPv4 the first four bytes, in network byte order */
} NetCMAddr;

/* The details of a connection, as they are delivered to an application. */
typedef struct NetCMConnInfo {
    int32_t ProfileId;    /* the profile that has been opened */
    char IfaceName[32];   /* network interface, at most 31 characters and a NUL */
    NetCMAddr DnsAddr[2]; /* the DNS servers of the connection, primary and secondary */
    int32_t DnsCount;     /* how many of DnsAddr are valid */
    NetCMAddr IpAddr;     /* the local address */
    uint16_t HasOptAddr1; /* 1: there is an OptAddr1 */
    NetCMAddr OptAddr1;   /* valid when HasOptAddr1 is 1; its meaning is the server's */
    uint16_t HasOptAddr2; /* 1: there is an OptAddr2 */
    NetCMAddr OptAddr2;   /* valid when HasOptAddr2 is 1; its meaning is the server's */
} NetCMConnInfo;

/* Tunnel data: of a request (NetCMTunnelRequest) and of a tunnel event. Set by the caller in a request, by the library
 * in an event. */
typedef struct NetCMTunnelData {
    int32_t Param;       /* request: passed to the server unchanged; event: -1 */
    uint32_t RequestId;  /* the server's id of the request; in an indication the server's word. Set by the library */
    uint32_t DataLength; /* bytes of Data */
    void *Data;          /* request: the caller's; event: the library's, during the callback */
} NetCMTunnelData;

/* What an event is about, and what its Data points to. Where nothing is said, Data is null, or, when Result is
 * 21, points to one int32_t: the server's reason word. */
enum NetCMEventType {
    NETCM_EVENT_OPEN_RSP = 0,    /* outcome of an open; on success Data is a NetCMConnInfo */
    NETCM_EVENT_CLOSE_RSP = 1,   /* outcome of a close */
    NETCM_EVENT_KILL_RSP = 2,    /* outcome of a kill, to the threads that asked for it */
    NETCM_EVENT_STOP_IND = 3,    /* the connection has ended: by the network, by a kill (Result 22), or because the
                                  server has gone (Result 2) */
    NETCM_EVENT_SUSPEND_IND = 4, /* the connection is suspended; with Result 21, Data is an int32_t of value 1 */
    NETCM_EVENT_RESUME_IND = 5,  /* the connection runs again; with Result 21, Data is an int32_t of value 0 */
    NETCM_EVENT_TUNNEL_RSP = 6,  /* answer to a tunnel request; Data is a NetCMTunnelData */
    NETCM_EVENT_TUNNEL_IND = 7,  /* tunnel data from the server; Data is a NetCMTunnelData */
    NETCM_EVENT_NETWORK_STATUS_IND = 8, /* ProfileId is -1; Data is two int32_t of the server's */
    NETCM_EVENT_IP_CHANGE_IND = 9,      /* Data is a NetCMConnInfo */
    NETCM_EVENT_PROPER_PROFILE_RSP = 10 /* Data is the server's status word and the words behind it */
};

/* An event, as a callback gets it. */
typedef struct NetCMEvent {
    uint32_t EventType; /* one of NetCMEventType */
    int32_t ProfileId;  /* the profile that the event is about */
    int32_t Result;     /* 0, or the server's status word */
    void *Data;         /* what EventType says; null: nothing */
} NetCMEvent;

/* An application's callback. Rule 4 says where it runs and what it may do. */
typedef void (*NetCMEventCallback)(NetCMEvent *event);

/* ---------------------------------------------------------------------------------------------------------------
 * Registration */

/* Registers the calling thread with a callback that gets its events (rule 4). The first registration of the process
 * connects it with the CM server and starts the receiver thread; it makes up to three attempts, each of which costs
 * a second when no server is there.
 *
 *   callback   kept until the thread deregisters; not null
 *
 *   NETCM_SUCCESS                        registered
 *   NETCM_ERR_INVALID_PARAM              null callback
 *   NETCM_ERR_ALREADY_REGISTERED         the calling thread is registered already; its callback stays
 *   NETCM_ERR_NO_FREE_ENTRY              16 threads are registered
 *   NETCM_ERR_REREGISTER_RETRY_EXHAUSTED the CM server could not be reached, or refused
 *
 * A thread that ends without deregistering stays registered, and a later thread that is given the same kernel
 * thread id is taken for it.
 *
 * Example: examples/keep.c */
uint32_t NetCMClientRegister(NetCMEventCallback callback);

/* Deregisters the calling thread. The last thread takes the link to the server down: it waits for the receiver
 * thread to end, closes both sockets and resets the client table.
 *
 *   NETCM_SUCCESS             deregistered; no callback of this thread runs after the return
 *   NETCM_ERR_NOT_REGISTERED  the process or the calling thread is not registered
 *   NETCM_ERR_ALREADY_EXISTS  the thread still uses a connection: close it first, and wait for the response */
uint32_t NetCMClientDeRegister(void);

/* ---------------------------------------------------------------------------------------------------------------
 * Connections */

/* Asks for a connection. The function is done as soon as the server has accepted the request; the outcome comes to the
 * callback as NETCM_EVENT_OPEN_RSP. A profile that is open already, for this process, is shared: the calling thread joins
 * it without asking the server, and gets its own NETCM_EVENT_OPEN_RSP with the others, or at once when the
 * connection is up.
 *
 *   profileIds    profile ids; only the first is used. 0 stands for the server's default profile
 *   profileCount  1 to 20
 *
 *   NETCM_SUCCESS                accepted, or joined
 *   NETCM_ERR_INVALID_PARAM      count out of range, null array, or the server gave a call id that is not 0 to 3
 *   NETCM_ERR_INVALID_PROFILE    the first id is below 0
 *   NETCM_ERR_NOT_REGISTERED     the process or the calling thread is not registered
 *   NETCM_ERR_REREGISTER_FAILED  rule 3
 *   NETCM_ERR_ALREADY_EXISTS     this thread has opened this profile already
 *   NETCM_ERR_CALL_CLOSING       a connection of this profile is being closed: try again after its response
 *   NETCM_ERR_MAX_LIMIT          16 threads share the connection, or the thread has 20 profiles on it
 *   NETCM_ERR_FAILURE            the exchange failed, or a thread or memory could not be had
 *   any other                    the server's refusal. 21 has a reason: see NetCMGetTransportError
 *
 * Example: examples/open.c */
uint32_t NetCMConnectionOpen(const int32_t *profileIds, int32_t profileCount);

/* Gives up the calling thread's use of a profile. While others use the connection it stays up, and the library
 * answers; the last user's close stops it at the server. Either way NETCM_EVENT_CLOSE_RSP comes to the callback.
 *
 *   NETCM_SUCCESS                sent to the server, or answered by the library
 *   NETCM_ERR_INVALID_PROFILE    id below 1
 *   NETCM_ERR_NOT_REGISTERED     the process or the calling thread is not registered
 *   NETCM_ERR_REREGISTER_FAILED  rule 3
 *   NETCM_ERR_NOT_ACTIVE         no connection of this profile, or this thread does not use it
 *   NETCM_ERR_FAILURE            the request could not be sent, or a thread or memory could not be had */
uint32_t NetCMConnectionClose(int32_t profile);

/* Asks the server to tear a connection down, whatever other users it has. Every other user gets a
 * NETCM_EVENT_STOP_IND with Result 22, and every thread that asked a NETCM_EVENT_KILL_RSP.
 *
 *   NETCM_SUCCESS                 sent, or another thread's kill of the same profile is joined
 *   NETCM_ERR_INVALID_PROFILE     id below 1
 *   NETCM_ERR_NOT_REGISTERED      the process or the calling thread is not registered
 *   NETCM_ERR_REREGISTER_FAILED   rule 3
 *   NETCM_ERR_CLOSING             this thread has asked to kill this profile already
 *   NETCM_ERR_CALL_CLOSING        the connection is being closed by its last user
 *   NETCM_ERR_NO_FREE_KILL_ENTRY  four kills are pending
 *   NETCM_ERR_FAILURE             the request could not be sent */
uint32_t NetCMConnectionKill(int32_t profile);

/* Kills every active packet-data connection of the device, with a pause of two seconds after each. Holds
 * NetCMAppMutex all the time: no event is delivered meanwhile.
 *
 *   NETCM_SUCCESS                the last kill was sent (one before it may have failed), or there was nothing to kill
 *   NETCM_ERR_NOT_REGISTERED     the process or the calling thread is not registered
 *   NETCM_ERR_REREGISTER_FAILED  rule 3
 *   any other                    why the list could not be read, or the result of the last kill */
uint32_t NetCMConnectionCleanup(void);

/* Tells why the server refused the calling thread's last request, as far as it said so. Reading does not reset it.
 *
 *   error   the server's reason word; -1: none
 *
 *   NETCM_SUCCESS             read
 *   NETCM_ERR_INVALID_PARAM   null pointer
 *   NETCM_ERR_NOT_REGISTERED  the process or the calling thread is not registered */
uint32_t NetCMGetTransportError(int32_t *error);

/* When the last connection was asked for and answered, and the same for the last close: two times each, request and
 * response, in seconds since the epoch with microseconds behind the point. */
extern double ps_call_act_time[2];
extern double ps_call_deact_time[2];

/* ---------------------------------------------------------------------------------------------------------------
 * Settings and state
 *
 * Results that every function of this group and of the next has, where nothing else is said:
 *
 *   NETCM_SUCCESS                done; output arguments are written on success alone
 *   NETCM_ERR_NOT_REGISTERED     the process is not registered
 *   NETCM_ERR_INVALID_PARAM      a null pointer or an argument out of range
 *   NETCM_ERR_REREGISTER_FAILED  rule 3
 *   NETCM_ERR_FAILURE            the exchange failed: the request could not be sent, the answer did not come within
 *                                60 seconds, or was another one
 *   any other                    the server's refusal */

/* Reads or changes a setting of the server.
 *
 *   key     0 to 4; the meaning of keys and values is the server's
 *   value   the value read, or to be set
 *   result  the status
 *
 * Returns 1 on success, 0 on failure, with the status in *result: these two answer differently from the rest. Returns
 * NETCM_ERR_REREGISTER_FAILED (2) when the link could not be repaired, and then *result is not written. With a null
 * `result` returns 0, and nothing is done. */
uint32_t NetCMSettingsGet(uint32_t key, uint32_t *value, uint32_t *result);
uint32_t NetCMSettingsSet(uint32_t key, uint32_t *value, uint32_t *result);

/* Reads the state of one network interface.
 *
 *   netIface  NETCM_IFACE_PDP or NETCM_IFACE_WIFI
 *   status    the server's state word; set to 0 before the exchange */
uint32_t NetCMGetNetworkStatus(uint32_t netIface, uint32_t *status);

/* Reads or switches packet data, for the process's first call and its first profile.
 *
 *   state   1 to 3; their meaning is the server's
 *
 *   NETCM_ERR_NOT_REGISTERED  also: the process has no call */
uint32_t NetCMGetPacketDataState(uint32_t *state);
uint32_t NetCMSetPacketDataState(uint32_t state);

/* Reads which network interfaces are available.
 *
 *   ifaceList  a mask of NETCM_IFACE_PDP and NETCM_IFACE_WIFI */
uint32_t NetCMGetNetIfaceList(int32_t *ifaceList);

/* Tells whether a network interface is available.
 *
 *   netIface  NETCM_IFACE_PDP or NETCM_IFACE_WIFI
 *
 * Returns 1 when it is, else 0, also when the list could not be read. */
uint32_t NetCMNetIfaceSupport(uint32_t netIface);

/* Resets statistics.
 *
 *   level   0 to 4; their meaning is the server's */
uint32_t NetCMResetStatInfo(uint32_t level);

/* ---------------------------------------------------------------------------------------------------------------
 * What is connected
 *
 * NetCMGetActiveProfileIDs, NetCMGetActiveProfileNameList and NetCMGetActiveConnectionList need a registered thread,
 * and give NETCM_ERR_NOT_ACTIVE with a count of 0 when there is nothing to list. A block of the server that does not come within 10 seconds gives NETCM_ERR_FAILURE. */

/* Reads the ids of the active profiles.
 *
 *   ids     room for 16 int32_t (64 bytes)
 *   count   how many were written: 0 to 16 */
uint32_t NetCMGetActiveProfileIDs(uint8_t *ids, uint32_t *count);

/* Reads the names of the active profiles.
 *
 *   names   room for 16 names of 100 bytes each (1600 bytes), NUL-terminated
 *   count   how many were written: 0 to 16 */
uint32_t NetCMGetActiveProfileNameList(uint8_t *names, uint32_t *count);

/* Reads the active connections of one network interface.
 *
 *   netIface  NETCM_IFACE_PDP or NETCM_IFACE_WIFI
 *   list      room for 4 entries of 176 bytes each (704 bytes): the profile id, an int32_t, at offset 0; the access
 *             point name, NUL-terminated, at offset 4 (at most 104 bytes); the rest is the server's
 *   count     how many were written: 0 to 4 */
uint32_t NetCMGetActiveConnectionList(uint32_t netIface, uint8_t *list, uint32_t *count);

/* Reads the server's statistics.
 *
 *   stat   six counters; their meaning is the server's */
uint32_t NetCMGetStatInfo(uint32_t stat[6]);

/* Reads the details of an active connection of this process, without asking the server. Both DnsAddr are written and
 * DnsCount is always 2: an address of 0 means none. An optional address is written only where the connection has
 * one, and OptAddr1 then carries the second; nothing else of the record is touched.
 *
 *   profileId  profile of an open connection, above 0
 *   devinfo    receives the details
 *
 *   NETCM_ERR_INVALID_PROFILE  id below 1
 *   NETCM_ERR_NOT_ACTIVE       no active connection has this profile */
uint32_t NetCMDeviceGetInfo(int32_t profileId, NetCMConnInfo *devinfo);

/* ---------------------------------------------------------------------------------------------------------------
 * Tunnel data */

/* Registers the process for tunnel indications, or deregisters it. Every registered thread gets every indication, as
 * NETCM_EVENT_TUNNEL_IND. */
uint32_t NetCMClientRegisterTunnelInd(void);
uint32_t NetCMClientDeRegisterTunnelInd(void);

/* Sends data to the server. The server's answer comes to the callback of the calling thread as
 * NETCM_EVENT_TUNNEL_RSP with the same request id.
 *
 *   record   Param, DataLength and Data are the caller's and are copied; RequestId is written on success. Data may be
 *            null when DataLength is 0
 *
 *   NETCM_ERR_NOT_REGISTERED        also: the calling thread is not registered
 *   NETCM_ERR_NO_FREE_TUNNEL_ENTRY  twenty requests of the process wait for their answer
 *   any other                       the server's refusal; its reason: NetCMGetTransportError
 *
 * Example: examples/tunnel.c */
uint32_t NetCMTunnelRequest(NetCMTunnelData *record);

/* ---------------------------------------------------------------------------------------------------------------
 * The client table
 *
 * Exported for diagnosis. It is guarded by NetCMAppMutex, and written by the library alone. Set by the library. */

/* How much the table holds. */
#define NETCM_MAX_CALLS 4            /* connections of a process */
#define NETCM_MAX_THREADS 16         /* registered threads of a process */
#define NETCM_MAX_PROFILES 20        /* of one thread on one call */
#define NETCM_MAX_DNS 2              /* DNS servers of a connection */
#define NETCM_MAX_KILLS 4            /* kills that wait for their response */
#define NETCM_MAX_TUNNELS 20         /* tunnel requests that wait for their answer */
#define NETCM_MAX_PROPER_PROFILES 16 /* queries for a proper profile that wait for their answer */

/* The stored form of a connection's details; the fields are those of NetCMConnInfo. */
typedef struct NetCMCallConnInfo {
    char IfaceName[32];               /* network interface */
    uint32_t Reserved;                /* never written. Set by nobody */
    NetCMAddr DnsAddr[NETCM_MAX_DNS]; /* the DNS servers */
    int32_t DnsCount;                 /* how many of DnsAddr are valid */
    NetCMAddr IpAddr;                 /* the local address */
    uint16_t HasOptAddr1;             /* 1: there is an OptAddr1 */
    NetCMAddr OptAddr1;               /* the server's */
    uint16_t HasOptAddr2;             /* 1: there is an OptAddr2 */
    NetCMAddr OptAddr2;               /* the server's */
} NetCMCallConnInfo;

/* One thread's use of a call. */
typedef struct NetCMThreadProf {
    int32_t ThreadIndex;                   /* index into ThreadInfo; -1: free */
    int32_t ProfileId[NETCM_MAX_PROFILES]; /* -1: empty slot */
} NetCMThreadProf;

/* A call. Its index in the table is the call id that the server gave. */
typedef struct NetCMCallInfo {
    uint16_t InUse;             /* 1: this is a call; 0: free */
    int32_t CallId;             /* -1: none */
    uint16_t IsActive;          /* 1 once the connection is up */
    NetCMCallConnInfo ConnInfo; /* valid once the connection is up */
    uint32_t CallState;         /* 3 resumed, 4 suspended; above 4 the call is closing: 5 stop sent, 7 kill sent */
    NetCMThreadProf ThreadProf[NETCM_MAX_THREADS]; /* who uses it */
} NetCMCallInfo;

/* A registered thread. */
typedef struct NetCMThreadInfo {
    int32_t ThreadId;            /* kernel thread id; -1: free */
    NetCMEventCallback EventCbk; /* null: free */
    int32_t LastSyncError;       /* -1: none */
} NetCMThreadInfo;

/* A kill that waits for its response. */
typedef struct NetCMKillReq {
    int32_t ThreadId;  /* kernel thread id of the requester; -1: free */
    int32_t ProfileId; /* -1: free */
} NetCMKillReq;

/* A tunnel request that waits for its answer. */
typedef struct NetCMTunnelReq {
    int32_t ThreadId;  /* kernel thread id of the requester; -1: free */
    int32_t RequestId; /* the server's id of the request; -1: free */
} NetCMTunnelReq;

/* A query for a proper profile that waits for its answer. */
typedef struct NetCMProperProfReq {
    uint16_t InUse;   /* 1: waits; 0: free */
    int32_t ThreadId; /* kernel thread id of the requester; -1: free */
    int32_t ReqKey;   /* the application id that the answer names; -1: free */
} NetCMProperProfReq;

/* The process as the library knows it: the type of g_NetCMClientAppInfo. */
typedef struct NetCMClientAppInfo {
    uint16_t IsRegistered;                                       /* 1 while a thread is registered */
    int32_t ClientId;                                            /* given by the server; -1: none */
    int32_t RegCount;                                            /* registered threads */
    pthread_t RecvThreadId;                                      /* the receiver thread; -1: none */
    int32_t SyncSockFd;                                          /* -1: none */
    int32_t AsyncSockFd;                                         /* -1: none */
    int32_t AppId;                                               /* application id; 0: not known */
    NetCMCallInfo CallInfo[NETCM_MAX_CALLS];                     /* connections */
    NetCMThreadInfo ThreadInfo[NETCM_MAX_THREADS];               /* who is registered */
    NetCMKillReq KillReq[NETCM_MAX_KILLS];                       /* kills under way */
    NetCMTunnelReq TunnelReq[NETCM_MAX_TUNNELS];                 /* tunnel requests under way */
    NetCMProperProfReq ProperProfReq[NETCM_MAX_PROPER_PROFILES]; /* queries under way */
} NetCMClientAppInfo;

extern NetCMClientAppInfo g_NetCMClientAppInfo;

/* The recursive mutex of the client table, held for a whole exchange with the server and during callbacks. */
extern pthread_mutex_t NetCMAppMutex;

/* Room for an application's event-system handle. The library never uses it. */
extern void *EvtDeliveryHandle;

/* ---------------------------------------------------------------------------------------------------------------
 * Who the calling application is */

/* Room for an application's name, in bytes. */
#define NETCM_APP_NAME_SIZE 256

/* Reads the calling application's id, as the platform's application manager knows it.
 *
 *   appId  receives the id; untouched when there is none
 *
 * Returns 1 when the platform gave an id, else 0. */
int NetCMClientGetAppId(int32_t *appId);

/* Reads an application's display name, from the configuration key "/System/AppInfo/<appId>/AppName".
 *
 *   appId  the application's id
 *   name   NETCM_APP_NAME_SIZE bytes, the caller's. A name of 256 bytes or more is cut there and has no
 *          terminator; an empty one leaves the buffer as it is
 *
 * The first call loads GConf into the process. A session that has no configuration client at all ends the process with
 * a failed assertion.
 *
 * Returns 0 when the configuration has a name (or an empty one); 1 when it has none or cannot be read, and `name` is
 * "No Name_" and the process id. */
int NetCMClientGetAppName(int32_t appId, char *name);

#ifdef __cplusplus
}
#endif

#endif
