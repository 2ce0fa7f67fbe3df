/* Host names, looked up in the background by the library's resolver. */
#include <quorvel/NetDNS.h>
#include <stdlib.h>
#include <string.h>

#include "client.h"

/* The library's limit, of requests and of workers. */
enum { kMostLookups = 10 };

/* Held while a lookup is set up and while one is answered: an answer that comes at once waits until it is
 * known whose it is. The library waits for nobody then, and holds no lock of its own when it calls back. */
static pthread_mutex_t names_lock = PTHREAD_MUTEX_INITIALIZER;
static qv_job* job_of[kMostLookups + 1];

/* How many places of the library's are taken. One is free again when its worker has ended, a little after the
 * callback; only the end of the thread tells when that is. */
static unsigned places;
static pthread_key_t worker_end;
static pthread_once_t worker_end_once = PTHREAD_ONCE_INIT;

static void on_worker_end(void* answered) {
    pthread_mutex_lock(&names_lock);
    const unsigned count = (unsigned)(uintptr_t)answered;
    places -= count < places ? count : places;
    pthread_mutex_unlock(&names_lock);
    qv_room_for_lookups();
}

static void make_worker_end(void) {
    if (pthread_key_create(&worker_end, on_worker_end) != 0)
        abort(); /* a process has hundreds of them */
}

static unsigned count_addresses(const struct hostent* host) {
    unsigned count = 0;
    while (host->h_addr_list[count] != NULL)
        ++count;
    return count;
}

static qv_message* copy_host(const struct hostent* host) {
    const char* own = host->h_name != NULL ? host->h_name : "";
    qv_host head = {count_addresses(host), 1};
    size_t length = sizeof head + head.addresses * 4u + strlen(own) + 1;
    for (char** alias = host->h_aliases; *alias != NULL; ++alias, ++head.names)
        length += strlen(*alias) + 1;
    qv_message* message = qv_message_new(length);
    if (message == NULL)
        return NULL;
    unsigned char* at = message->data;
    memcpy(at, &head, sizeof head);
    at += sizeof head;
    for (unsigned i = 0; i < head.addresses; ++i, at += 4)
        memcpy(at, host->h_addr_list[i], 4);
    at = (unsigned char*)stpcpy((char*)at, own) + 1;
    for (char** alias = host->h_aliases; *alias != NULL; ++alias)
        at = (unsigned char*)stpcpy((char*)at, *alias) + 1;
    return message;
}

/* On a thread of the library's, with none of its locks. */
static void on_host(struct hostent* host, unsigned id) {
    pthread_setspecific(worker_end, (void*)((uintptr_t)pthread_getspecific(worker_end) + 1));
    qv_message* message = host != NULL ? copy_host(host) : NULL;
    pthread_mutex_lock(&names_lock);
    qv_job* job = id <= kMostLookups ? job_of[id] : NULL;
    if (job != NULL)
        job_of[id] = NULL;
    pthread_mutex_unlock(&names_lock);
    if (job == NULL) {
        qv_message_free(message);
        return;
    }
    pthread_mutex_lock(&qv_lock);
    qv_answer(job, message, host == NULL ? QV_NOT_FOUND : message == NULL ? QV_LOOKUP_REFUSED : QV_FOUND);
    pthread_mutex_unlock(&qv_lock);
}

enum qv_lookup_start qv_look_up(qv_job* job) {
    pthread_once(&worker_end_once, make_worker_end);
    enum qv_lookup_start result = QV_LOOKUP_WAITS;
    pthread_mutex_lock(&names_lock);
    if (places < kMostLookups) {
        unsigned id = 0;
        if (NetDNSGetHostByNameAsync(job->a, (const char*)job->data, on_host, &id) == 1 &&
            id <= kMostLookups) {
            job_of[id] = job;
            ++places;
            result = QV_LOOKUP_STARTED;
        } else {
            result = QV_LOOKUP_WRONG;
        }
    }
    pthread_mutex_unlock(&names_lock);
    return result;
}

/* There is no lookup in the child of a fork. */
void qv_names_in_child(void) {
    names_lock = (pthread_mutex_t)PTHREAD_MUTEX_INITIALIZER;
    memset(job_of, 0, sizeof job_of);
    places = 0;
}
