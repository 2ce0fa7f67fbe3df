/* Clients: a thread for each, that is registered with the library as long as it lives. */
#include "client.h"

#include <errno.h>
#include <limits.h>
#include <quorvel/NetCM.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum { kTransportError = 21, kNoReason = -1, kStackBytes = 256 * 1024 };

/* A connection of a client, from the request that opens it to its end. */
typedef struct route {
    int in_use;
    uint64_t request; /* that opens it */
    int is_begun;     /* its turn has come */
    int32_t profile;  /* 0: the default one, until the library says which that is */
    qv_mailbox* box;  /* held; null: nobody wants it any more */
    int is_accepted;  /* the library has it */
    int is_closing;
} route;

typedef struct client {
    int64_t number; /* 0: free */
    pthread_cond_t wake;
    qv_mailbox* events; /* held */
    qv_job* first;      /* what is to be asked */
    qv_job** end;
    qv_job* asking;  /* a tunnel request whose id is not known yet */
    qv_job* pending; /* kills and tunnel requests that wait for their event */
    qv_job* waiting; /* lookups that wait for room */
    int is_room;     /* for lookups, perhaps */
    int is_ending;
    qv_mailbox* end_answers; /* held */
    uint64_t end_request;
    route routes[NETCM_MAX_PROFILES];
} client;

/* As many as the library registers threads. They are never freed: a callback finds its own whenever it comes.
 */
static client clients[NETCM_MAX_THREADS];
static int64_t clients_begun;
static pthread_once_t prepared = PTHREAD_ONCE_INIT;

/* ---- answers ---- */

static void free_job(qv_job* job) {
    qv_mailbox_release(job->answers);
    qv_message_free(job->early);
    free(job);
}

static void put_answer(qv_mailbox* answers, uint64_t request, qv_message* answer, uint32_t status) {
    if (answer == NULL)
        answer = qv_message_new(0);
    if (answer != NULL) {
        answer->request = request;
        answer->status = status;
    }
    qv_mailbox_put(answers, answer, 1);
}

void qv_answer(qv_job* job, qv_message* answer, uint32_t status) {
    put_answer(job->answers, job->request, answer, status);
    free_job(job);
}

static void refuse_all(qv_job* job) {
    while (job != NULL) {
        qv_job* next = job->next;
        qv_answer(job, NULL, NETCM_ERR_NOT_REGISTERED);
        job = next;
    }
}

/* The first job of a list for which this holds, taken out of it. */
static qv_job* take_pending(client* own, int operation, uint32_t key) {
    for (qv_job** at = &own->pending; *at != NULL; at = &(*at)->next) {
        qv_job* job = *at;
        if (job->operation != operation || job->key != key)
            continue;
        *at = job->next;
        return job;
    }
    return NULL;
}

/* ---- routes ---- */

static route* route_of(client* own, int32_t profile) {
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at)
        if (at->in_use && at->profile == profile)
            return at;
    return NULL;
}

static route* route_into(client* own, const qv_mailbox* box) {
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at)
        if (at->in_use && at->box == box)
            return at;
    return NULL;
}

static route* route_opened_by(client* own, uint64_t request) {
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at)
        if (at->in_use && at->request == request)
            return at;
    return NULL;
}

static int add_route(client* own, const qv_job* job, qv_mailbox* box) {
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at) {
        if (at->in_use)
            continue;
        *at = (route){.in_use = 1, .request = job->request, .profile = job->a, .box = qv_mailbox_hold(box)};
        return 1;
    }
    return 0;
}

static void end_route(route* at) {
    qv_mailbox_end(at->box);
    qv_mailbox_release(at->box);
    *at = (route){0};
}

static int is_about_a_connection(uint32_t type) {
    return type <= NETCM_EVENT_RESUME_IND || type == NETCM_EVENT_IP_CHANGE_IND;
}

static int is_an_end(const NetCMEvent* event) {
    return (event->EventType == NETCM_EVENT_OPEN_RSP && event->Result != 0) ||
           (event->EventType >= NETCM_EVENT_CLOSE_RSP && event->EventType <= NETCM_EVENT_STOP_IND);
}

/* What comes before the library has said which profile the default one is, and is nobody else's, says it. */
static route* find_route(client* own, const NetCMEvent* event) {
    if (!is_about_a_connection(event->EventType))
        return NULL;
    route* found = route_of(own, event->ProfileId);
    if (found != NULL && found->is_begun)
        return found;
    found = event->EventType == NETCM_EVENT_KILL_RSP ? NULL : route_of(own, 0);
    if (found == NULL || !found->is_begun)
        return NULL;
    found->profile = event->ProfileId;
    return found;
}

/* ---- events ---- */

static qv_message* copy_bytes(const void* data, size_t length) {
    qv_message* message = qv_message_new(length);
    if (message != NULL && length != 0)
        memcpy(message->data, data, length);
    return message;
}

static qv_message* copy_data(const NetCMEvent* event) {
    if (event->Data == NULL)
        return qv_message_new(0);
    const NetCMTunnelData* tunnel = event->Data;
    qv_message* message = NULL;
    switch (event->EventType) {
        case NETCM_EVENT_TUNNEL_RSP:
        case NETCM_EVENT_TUNNEL_IND:
            message = copy_bytes(tunnel->Data, tunnel->DataLength);
            if (message != NULL)
                message->id = tunnel->RequestId;
            return message;
        case NETCM_EVENT_NETWORK_STATUS_IND:
        case NETCM_EVENT_PROPER_PROFILE_RSP:
            return copy_bytes(event->Data, 2 * sizeof(int32_t));
        case NETCM_EVENT_OPEN_RSP:
        case NETCM_EVENT_IP_CHANGE_IND:
            if (event->Result == NETCM_SUCCESS)
                return copy_bytes(event->Data, sizeof(NetCMConnInfo));
            break;
        default:
            break;
    }
    message = qv_message_new(0);
    if (message != NULL)
        memcpy(&message->reason, event->Data, sizeof message->reason);
    return message;
}

static qv_message* copy_event(const NetCMEvent* event) {
    qv_message* message = copy_data(event);
    if (message != NULL) {
        message->status = event->EventType;
        message->profile = event->ProfileId;
        message->result = event->Result;
    }
    return message;
}

/* Whether somebody waits for just this event. */
static int is_awaited(client* own, const NetCMEvent* event, qv_message* message) {
    if (event->EventType != NETCM_EVENT_TUNNEL_RSP || message == NULL)
        return 0;
    qv_job* job = take_pending(own, QV_TUNNEL, message->id);
    if (job != NULL)
        qv_answer(job, message, (uint32_t)event->Result);
    else if (own->asking != NULL && own->asking->operation == QV_TUNNEL && own->asking->early == NULL)
        own->asking->early = message;
    else
        return 0;
    return 1;
}

static void tell_killers(client* own, const NetCMEvent* event) {
    qv_job* job = NULL;
    while (event->EventType == NETCM_EVENT_KILL_RSP &&
           (job = take_pending(own, QV_KILL, (uint32_t)event->ProfileId)) != NULL) {
        qv_message* answer = qv_message_new(0);
        if (answer != NULL && event->Data != NULL)
            memcpy(&answer->reason, event->Data, sizeof answer->reason);
        qv_answer(job, answer, (uint32_t)event->Result);
    }
}

/* On a thread of the library's, with its lock held. */
static void on_event(client* own, const NetCMEvent* event) {
    qv_message* message = copy_event(event);
    pthread_mutex_lock(&qv_lock);
    tell_killers(own, event);
    route* found = find_route(own, event);
    if (is_awaited(own, event, message)) {
        /* It is the answer. */
    } else if (found == NULL) {
        qv_mailbox_put(own->events, message, 0);
    } else {
        const int ends = is_an_end(event);
        qv_mailbox_put(found->box, message, ends || event->EventType == NETCM_EVENT_OPEN_RSP);
        if (ends)
            end_route(found);
        else
            found->is_accepted = 1;
    }
    pthread_cond_signal(&own->wake);
    pthread_mutex_unlock(&qv_lock);
}

/* The library's callbacks have no argument of ours: each client has one of its own. */
#define CALLBACK(index)                               \
    static void on_event_##index(NetCMEvent* event) { \
        on_event(&clients[index], event);             \
    }
CALLBACK(0)
CALLBACK(1)
CALLBACK(2)
CALLBACK(3)
CALLBACK(4)
CALLBACK(5)
CALLBACK(6)
CALLBACK(7)
CALLBACK(8)
CALLBACK(9)
CALLBACK(10)
CALLBACK(11)
CALLBACK(12)
CALLBACK(13)
CALLBACK(14)
CALLBACK(15)
#undef CALLBACK
static const NetCMEventCallback callbacks[NETCM_MAX_THREADS] = {
    on_event_0, on_event_1, on_event_2,  on_event_3,  on_event_4,  on_event_5,  on_event_6,  on_event_7,
    on_event_8, on_event_9, on_event_10, on_event_11, on_event_12, on_event_13, on_event_14, on_event_15};

/* ---- the client's thread ---- */

static int32_t why_refused(uint32_t status) {
    int32_t reason = kNoReason;
    if (status == kTransportError)
        NetCMGetTransportError(&reason);
    return reason;
}

/* With the lock. */
static void answer_refused(qv_job* job, uint32_t status, int32_t reason) {
    qv_message* answer = qv_message_new(0);
    if (answer != NULL)
        answer->reason = reason;
    qv_answer(job, answer, status);
}

/* The profile that the library has opened for the client's thread, and that no route has: the default one. */
static void name_default(client* own, route* unnamed) {
    const NetCMClientAppInfo* info = &g_NetCMClientAppInfo;
    const int32_t self = (int32_t)gettid();
    for (int i = 0; i < NETCM_MAX_CALLS * NETCM_MAX_THREADS * NETCM_MAX_PROFILES; ++i) {
        const NetCMCallInfo* call = &info->CallInfo[i / NETCM_MAX_PROFILES / NETCM_MAX_THREADS];
        const NetCMThreadProf* use = &call->ThreadProf[i / NETCM_MAX_PROFILES % NETCM_MAX_THREADS];
        const int32_t profile = use->ProfileId[i % NETCM_MAX_PROFILES];
        if (!call->InUse || use->ThreadIndex < 0 || info->ThreadInfo[use->ThreadIndex].ThreadId != self ||
            profile < 1)
            continue;
        const route* other = route_of(own, profile);
        if (other != NULL && other->is_begun)
            continue;
        unnamed->profile = profile;
        return;
    }
}

/* Nobody is told of anything meanwhile. */
static void find_default(client* own, uint64_t request) {
    pthread_mutex_lock(&NetCMAppMutex);
    pthread_mutex_lock(&qv_lock);
    route* at = route_opened_by(own, request);
    if (at != NULL && at->profile == 0)
        name_default(own, at);
    pthread_mutex_unlock(&qv_lock);
    pthread_mutex_unlock(&NetCMAppMutex);
}

/* False when it has been given up before its turn came. */
static int begin_route(client* own, uint64_t request) {
    route* at = route_opened_by(own, request);
    if (at == NULL)
        return 0;
    if (at->box == NULL) {
        end_route(at);
        return 0;
    }
    at->is_begun = 1;
    return 1;
}

static void run_open(client* own, qv_job* job) {
    const uint64_t request = job->request;
    pthread_mutex_lock(&qv_lock);
    const int is_wanted = begin_route(own, request);
    pthread_mutex_unlock(&qv_lock);
    const uint32_t status = is_wanted ? NetCMConnectionOpen(&job->a, 1) : NETCM_ERR_NOT_ACTIVE;
    const int32_t reason = why_refused(status);
    if (status == NETCM_SUCCESS && job->a == 0)
        find_default(own, request);
    pthread_mutex_lock(&qv_lock);
    route* at = route_opened_by(own, request); /* none when it has ended meanwhile, which has been told */
    if (at != NULL && status != NETCM_SUCCESS)
        end_route(at);
    else if (at != NULL)
        at->is_accepted = 1;
    answer_refused(job, status, reason);
    pthread_mutex_unlock(&qv_lock);
}

static void run_close(client* own, qv_job* job) {
    pthread_mutex_lock(&qv_lock);
    route* at = route_of(own, job->a);
    const uint64_t request = at != NULL ? at->request : 0;
    if (at != NULL)
        at->is_closing = 1;
    pthread_mutex_unlock(&qv_lock);
    const uint32_t status = NetCMConnectionClose(job->a);
    pthread_mutex_lock(&qv_lock);
    at = request != 0 ? route_opened_by(own, request) : NULL;
    if (at != NULL && status != NETCM_SUCCESS)
        at->is_closing = 0;
    answer_refused(job, status, kNoReason);
    pthread_mutex_unlock(&qv_lock);
}

static void run_kill(client* own, qv_job* job) {
    pthread_mutex_lock(&qv_lock);
    job->key = (uint32_t)job->a;
    job->next = own->pending;
    own->pending = job;
    const uint64_t request = job->request;
    const int32_t profile = job->a;
    pthread_mutex_unlock(&qv_lock);
    const uint32_t status = NetCMConnectionKill(profile);
    if (status == NETCM_SUCCESS)
        return;
    pthread_mutex_lock(&qv_lock);
    for (qv_job** at = &own->pending; *at != NULL; at = &(*at)->next) {
        if ((*at)->request != request)
            continue;
        qv_job* refused = *at;
        *at = refused->next;
        answer_refused(refused, status, kNoReason);
        break;
    }
    pthread_mutex_unlock(&qv_lock);
}

static void run_tunnel(client* own, qv_job* job) {
    NetCMTunnelData record = {job->a, 0, job->data_length, job->data};
    pthread_mutex_lock(&qv_lock);
    own->asking = job;
    pthread_mutex_unlock(&qv_lock);
    const uint32_t status = NetCMTunnelRequest(&record);
    const int32_t reason = why_refused(status);
    pthread_mutex_lock(&qv_lock);
    own->asking = NULL;
    qv_message* early = job->early;
    job->early = NULL;
    if (status != NETCM_SUCCESS) {
        qv_message_free(early);
        answer_refused(job, status, reason);
    } else if (early != NULL) {
        qv_answer(job, early, (uint32_t)early->result);
    } else {
        job->key = record.RequestId;
        job->next = own->pending;
        own->pending = job;
    }
    pthread_mutex_unlock(&qv_lock);
}

static void run_lookup(client* own, qv_job* job) {
    const enum qv_lookup_start start = qv_look_up(job);
    if (start == QV_LOOKUP_STARTED)
        return;
    pthread_mutex_lock(&qv_lock);
    if (start == QV_LOOKUP_WRONG) {
        qv_answer(job, NULL, QV_LOOKUP_REFUSED);
    } else {
        qv_job** end = &own->waiting;
        while (*end != NULL)
            end = &(*end)->next;
        job->next = NULL;
        *end = job;
    }
    pthread_mutex_unlock(&qv_lock);
}

static void run_call(qv_job* job) {
    unsigned char room[QV_OUTPUT_ROOM];
    qv_output out = {room, 0};
    const uint32_t status = qv_perform(job, &out);
    qv_message* answer = copy_bytes(room, out.length);
    pthread_mutex_lock(&qv_lock);
    qv_answer(job, answer, status);
    pthread_mutex_unlock(&qv_lock);
}

static void run(client* own, qv_job* job) {
    switch (job->operation) {
        case QV_OPEN:
            run_open(own, job);
            break;
        case QV_CLOSE:
            run_close(own, job);
            break;
        case QV_KILL:
            run_kill(own, job);
            break;
        case QV_TUNNEL:
            run_tunnel(own, job);
            break;
        case QV_LOOK_UP:
            run_lookup(own, job);
            break;
        default:
            run_call(job);
            break;
    }
}

/* A connection that nobody wants, and that can be closed now. All of them when the client ends. */
static route* route_to_close(client* own) {
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at)
        if (at->in_use && (at->box == NULL || own->is_ending) && at->is_accepted && !at->is_closing &&
            at->profile > 0)
            return at;
    return NULL;
}

static int has_a_route(const client* own) {
    for (int i = 0; i < NETCM_MAX_PROFILES; ++i)
        if (own->routes[i].in_use)
            return 1;
    return 0;
}

/* With the lock, which is free while the library is asked. */
static void close_route(client* own, route* at) {
    const int32_t profile = at->profile;
    const uint64_t request = at->request;
    at->is_closing = 1;
    pthread_mutex_unlock(&qv_lock);
    const uint32_t status = NetCMConnectionClose(profile);
    pthread_mutex_lock(&qv_lock);
    at = route_opened_by(own, request);
    if (at == NULL || status == NETCM_SUCCESS)
        return;
    /* Not there any more; or the exchange has failed, and is tried again. */
    if (status == NETCM_ERR_NOT_ACTIVE || status == NETCM_ERR_NOT_REGISTERED)
        end_route(at);
    else
        at->is_closing = 0;
}

/* Something to do comes with a signal; what has failed is tried again after a second. */
static void wait_a_second(client* own) {
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += 1;
    pthread_cond_timedwait(&own->wake, &qv_lock, &until);
}

static qv_job* take_job(client* own) {
    if (own->is_room && own->waiting != NULL) {
        qv_job* job = own->waiting;
        own->waiting = job->next;
        return job;
    }
    own->is_room = 0;
    qv_job* job = own->first;
    if (job != NULL && (own->first = job->next) == NULL)
        own->end = &own->first;
    return job;
}

/* Runs what is asked until the end is asked for and everything before it is done. Called and left with the
 * lock. */
static void serve(client* own) {
    for (;;) {
        qv_job* job = take_job(own);
        route* unwanted = NULL;
        if (job != NULL) {
            pthread_mutex_unlock(&qv_lock);
            run(own, job);
            pthread_mutex_lock(&qv_lock);
            /* A lookup that waits again leaves the turn to the others. */
            if (job == own->waiting)
                own->is_room = 0;
        } else if ((unwanted = route_to_close(own)) != NULL) {
            close_route(own, unwanted);
            if (unwanted->in_use && !unwanted->is_closing)
                wait_a_second(own);
        } else if (!own->is_ending) {
            pthread_cond_wait(&own->wake, &qv_lock);
        } else if (has_a_route(own)) {
            wait_a_second(own);
        } else {
            return;
        }
    }
}

/* With the lock, which is free while the library is asked. */
static void deregister(client* own) {
    for (;;) {
        pthread_mutex_unlock(&qv_lock);
        const uint32_t status = NetCMClientDeRegister();
        pthread_mutex_lock(&qv_lock);
        if (status != NETCM_ERR_ALREADY_EXISTS)
            return;
        wait_a_second(own);
    }
}

static void leave(client* own) {
    refuse_all(own->first);
    refuse_all(own->pending);
    refuse_all(own->waiting);
    for (route* at = own->routes; at < own->routes + NETCM_MAX_PROFILES; ++at)
        if (at->in_use)
            end_route(at);
    qv_mailbox* answers = own->end_answers;
    const uint64_t request = own->end_request;
    own->number = 0;
    put_answer(answers, request, NULL, NETCM_SUCCESS);
    qv_mailbox_end(own->events);
    qv_mailbox_release(own->events);
    qv_mailbox_release(answers);
}

/* The lifetime of a client. The registration is the first thing that it is asked. */
static void* live(void* argument) {
    client* own = argument;
    const uint32_t status = NetCMClientRegister(callbacks[own - clients]);
    pthread_mutex_lock(&qv_lock);
    qv_job* registration = own->asking;
    own->asking = NULL;
    qv_answer(registration, NULL, status);
    if (status == NETCM_SUCCESS) {
        serve(own);
        deregister(own);
    }
    leave(own);
    pthread_mutex_unlock(&qv_lock);
    return NULL;
}

/* ---- what Python calls ---- */

static void be_a_child(void) {
    ++qv_forks;
    qv_lock = (pthread_mutex_t)PTHREAD_MUTEX_INITIALIZER;
    memset(clients, 0, sizeof clients);
    qv_names_in_child();
}

static void prepare(void) {
    pthread_atfork(NULL, NULL, be_a_child);
}

static client* client_of(int64_t number) {
    for (int i = 0; number > 0 && i < NETCM_MAX_THREADS; ++i)
        if (clients[i].number == number)
            return &clients[i];
    return NULL;
}

static client* free_client(void) {
    for (int i = 0; i < NETCM_MAX_THREADS; ++i)
        if (clients[i].number == 0)
            return &clients[i];
    return NULL;
}

static qv_job* new_job(int operation, int32_t a, uint32_t b, const void* data, uint32_t length,
                       qv_mailbox* answers, uint64_t request) {
    qv_job* job = calloc(1, sizeof *job + length + 1);
    if (job == NULL)
        return NULL;
    job->operation = operation;
    job->a = a;
    job->b = b;
    job->request = request;
    job->data_length = length;
    if (length != 0)
        memcpy(job->data, data, length);
    job->answers = qv_mailbox_hold(answers);
    return job;
}

/* The library's threads have the signal mask of whoever registers: signals are Python's. */
static int start_thread(client* own) {
    pthread_attr_t attributes;
    pthread_t thread;
    sigset_t all, before;
    int error = pthread_attr_init(&attributes);
    if (error != 0)
        return error;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    error = pthread_create(&thread, &attributes, live, own);
    pthread_sigmask(SIG_SETMASK, &before, NULL);
    pthread_attr_destroy(&attributes);
    return error;
}

static void init_condition(pthread_cond_t* condition) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

/* With the lock. */
static int64_t begin(client* own, qv_mailbox* events, qv_mailbox* answers, uint64_t request) {
    qv_job* registration = new_job(-1, 0, 0, NULL, 0, answers, request);
    if (registration == NULL)
        return -NETCM_ERR_FAILURE;
    *own = (client){.number = ++clients_begun, .events = qv_mailbox_hold(events), .asking = registration};
    own->end = &own->first;
    init_condition(&own->wake);
    const int error = start_thread(own);
    if (error == 0)
        return own->number;
    own->number = 0;
    qv_mailbox_release(events);
    free_job(registration);
    return -1000 - error;
}

int64_t qv_client_start(qv_mailbox* events, qv_mailbox* answers, uint64_t request) {
    pthread_once(&prepared, prepare);
    pthread_mutex_lock(&qv_lock);
    client* own = free_client();
    const int64_t number = own != NULL ? begin(own, events, answers, request) : -NETCM_ERR_NO_FREE_ENTRY;
    pthread_mutex_unlock(&qv_lock);
    return number;
}

/* With the lock. */
static uint32_t put_job(client* own, qv_job* job, qv_mailbox* route_box) {
    if (job->operation == QV_OPEN) {
        const route* other = route_of(own, job->a);
        if (other != NULL)
            return other->is_closing ? NETCM_ERR_CALL_CLOSING : NETCM_ERR_ALREADY_EXISTS;
        if (!add_route(own, job, route_box))
            return NETCM_ERR_MAX_LIMIT;
    }
    *own->end = job;
    own->end = &job->next;
    pthread_cond_signal(&own->wake);
    return NETCM_SUCCESS;
}

uint32_t qv_client_ask(int64_t number, int operation, int32_t a, uint32_t b, const void* data,
                       uint32_t length, qv_mailbox* answers, uint64_t request, qv_mailbox* route_box) {
    if (length > INT_MAX)
        return NETCM_ERR_INVALID_PARAM;
    pthread_mutex_lock(&qv_lock);
    client* own = client_of(number);
    uint32_t status = NETCM_ERR_NOT_REGISTERED;
    if (own != NULL && !own->is_ending) {
        qv_job* job = new_job(operation, a, b, data, length, answers, request);
        status = job != NULL ? put_job(own, job, route_box) : NETCM_ERR_FAILURE;
        if (job != NULL && status != NETCM_SUCCESS)
            free_job(job);
    }
    pthread_mutex_unlock(&qv_lock);
    return status;
}

void qv_client_forget(int64_t number, uint64_t request) {
    pthread_mutex_lock(&qv_lock);
    client* own = client_of(number);
    for (qv_job** at = own != NULL ? &own->pending : NULL; at != NULL && *at != NULL;) {
        qv_job* job = *at;
        if (job->request == request) {
            *at = job->next;
            free_job(job);
        } else {
            at = &job->next;
        }
    }
    pthread_mutex_unlock(&qv_lock);
}

void qv_client_abandon(int64_t number, qv_mailbox* route_box) {
    pthread_mutex_lock(&qv_lock);
    client* own = client_of(number);
    route* at = own != NULL ? route_into(own, route_box) : NULL;
    if (at != NULL) {
        qv_mailbox_release(at->box);
        at->box = NULL;
        pthread_cond_signal(&own->wake);
    }
    pthread_mutex_unlock(&qv_lock);
}

uint32_t qv_client_end(int64_t number, qv_mailbox* answers, uint64_t request) {
    pthread_mutex_lock(&qv_lock);
    client* own = client_of(number);
    uint32_t status = NETCM_ERR_NOT_REGISTERED;
    if (own != NULL && !own->is_ending) {
        status = NETCM_SUCCESS;
        own->is_ending = 1;
        own->end_answers = qv_mailbox_hold(answers);
        own->end_request = request;
        pthread_cond_signal(&own->wake);
    }
    pthread_mutex_unlock(&qv_lock);
    return status;
}

void qv_room_for_lookups(void) {
    pthread_mutex_lock(&qv_lock);
    for (client* own = clients; own < clients + NETCM_MAX_THREADS; ++own) {
        if (own->number == 0 || own->waiting == NULL)
            continue;
        own->is_room = 1;
        pthread_cond_signal(&own->wake);
    }
    pthread_mutex_unlock(&qv_lock);
}
