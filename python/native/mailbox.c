/* A queue with a descriptor that is readable while something is in it. */
#include "mailbox.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

pthread_mutex_t qv_lock = PTHREAD_MUTEX_INITIALIZER;
unsigned qv_forks;

struct qv_mailbox {
    int descriptor;
    unsigned forks; /* behind the process that has opened it */
    unsigned holders;
    int is_closed;
    int is_over; /* nothing comes any more, and whoever waits is to see that */
    qv_message* first;
    qv_message** end;
    size_t messages, bytes;
    uint32_t lost;
};

/* What an application that does not look may cost. */
static const size_t kMostMessages = 4096;
static const size_t kMostBytes = 16u << 20;

qv_message* qv_message_new(size_t length) {
    qv_message* message = calloc(1, sizeof *message + length);
    if (message != NULL) {
        message->length = (uint32_t)length;
        message->reason = -1;
    }
    return message;
}

void qv_message_free(qv_message* message) {
    free(message);
}

qv_mailbox* qv_mailbox_open(void) {
    qv_mailbox* box = calloc(1, sizeof *box);
    if (box == NULL)
        return NULL;
    box->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (box->descriptor < 0) {
        const int error = errno;
        free(box);
        errno = error;
        return NULL;
    }
    box->forks = qv_forks;
    box->holders = 1;
    box->end = &box->first;
    return box;
}

int qv_mailbox_descriptor(const qv_mailbox* box) {
    return box->descriptor;
}

int qv_mailbox_is_ours(const qv_mailbox* box) {
    return box->forks == qv_forks;
}

static void empty(qv_mailbox* box) {
    while (box->first != NULL) {
        qv_message* message = box->first;
        box->first = message->next;
        free(message);
    }
    box->end = &box->first;
    box->messages = box->bytes = 0;
}

static void ring(qv_mailbox* box) {
    const uint64_t one = 1;
    while (write(box->descriptor, &one, sizeof one) < 0 && errno == EINTR)
        ;
}

static void be_silent(qv_mailbox* box) {
    uint64_t rung;
    while (read(box->descriptor, &rung, sizeof rung) < 0 && errno == EINTR)
        ;
}

qv_message* qv_mailbox_take(qv_mailbox* box, uint32_t* lost) {
    *lost = 0;
    if (!qv_mailbox_is_ours(box))
        return NULL;
    pthread_mutex_lock(&qv_lock);
    qv_message* message = box->first;
    if (message != NULL) {
        box->first = message->next;
        box->messages -= 1;
        box->bytes -= message->length;
        if (box->first == NULL)
            box->end = &box->first;
    }
    *lost = box->lost;
    box->lost = 0;
    if (box->first == NULL && !box->is_over)
        be_silent(box);
    pthread_mutex_unlock(&qv_lock);
    return message;
}

qv_mailbox* qv_mailbox_hold(qv_mailbox* box) {
    if (box != NULL)
        box->holders += 1;
    return box;
}

void qv_mailbox_release(qv_mailbox* box) {
    if (box == NULL || --box->holders != 0)
        return;
    empty(box);
    free(box);
}

void qv_mailbox_put(qv_mailbox* box, qv_message* message, int must_come) {
    if (box == NULL || box->is_closed) {
        free(message);
        return;
    }
    const int is_full = box->messages >= kMostMessages || box->bytes >= kMostBytes;
    if (message == NULL || (is_full && !must_come)) {
        free(message);
        box->lost += 1;
    } else {
        message->next = NULL;
        *box->end = message;
        box->end = &message->next;
        box->messages += 1;
        box->bytes += message->length;
    }
    ring(box);
}

void qv_mailbox_end(qv_mailbox* box) {
    if (box == NULL || box->is_closed)
        return;
    box->is_over = 1;
    ring(box);
}

void qv_mailbox_close(qv_mailbox* box) {
    if (!qv_mailbox_is_ours(box)) {
        /* The queue is as some thread of the parent has left it. */
        close(box->descriptor);
        return;
    }
    pthread_mutex_lock(&qv_lock);
    box->is_closed = 1;
    close(box->descriptor);
    empty(box);
    qv_mailbox_release(box);
    pthread_mutex_unlock(&qv_lock);
}
