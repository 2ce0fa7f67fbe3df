/* The mailboxes, for what fills them. All of this is called with the binding's lock held. */
#ifndef QUORVEL_PYTHON_MAILBOX_H
#define QUORVEL_PYTHON_MAILBOX_H

#include <pthread.h>
#include <stddef.h>

#include "binding.h"

/* The one lock of the binding: clients, routes, requests, mailboxes. It is held for a look or a change, and
 * nothing of the library's is called under it; callbacks, which hold the library's own, take it. */
extern pthread_mutex_t qv_lock;

/* Counts the forks behind this process. */
extern unsigned qv_forks;

qv_message* qv_message_new(size_t length);

qv_mailbox* qv_mailbox_hold(qv_mailbox* box);
void qv_mailbox_release(qv_mailbox* box);

/* Takes the message over. One that must come does so however full the mailbox is. Null stands for one for
 * which there was no memory. */
void qv_mailbox_put(qv_mailbox* box, qv_message* message, int must_come);

/* Nothing comes behind what is there: the descriptor stays readable, for each of those who wait. */
void qv_mailbox_end(qv_mailbox* box);

#endif
