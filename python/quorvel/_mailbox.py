"""Where answers and events arrive: a queue with a descriptor that is readable while something is in it."""

from __future__ import annotations

import itertools
import math
import select
import time
from typing import Any, NamedTuple

from ._errors import NotRegisteredError, Status
from ._native import ffi, lib

# Every request of the process has a number of its own.
numbers = itertools.count(1)

LOST = -1


class Message(NamedTuple):
    """An answer (its request is above 0) or an event."""

    request: int
    status: int  # of an event its type; LOST: `id` events found no room
    profile: int
    result: int
    reason: int | None
    id: int
    data: bytes


class Mailbox:
    """Closed when nobody refers to it any more, so that nobody who waits loses the descriptor."""

    def __init__(self) -> None:
        box = lib.qv_mailbox_open()
        if box == ffi.NULL:
            error = ffi.errno
            raise OSError(error, "no mailbox for the CM server's answers")
        self.c: Any = ffi.gc(box, lib.qv_mailbox_close)
        self.descriptor: int = lib.qv_mailbox_descriptor(self.c)
        self._lost = 0

    def is_ours(self) -> bool:
        """False in the child of the process that has opened it."""
        return bool(lib.qv_mailbox_is_ours(self.c))

    def take(self) -> Message | None:
        lost = ffi.new("uint32_t *")
        c = lib.qv_mailbox_take(self.c, lost)
        self._lost += lost[0]
        if c == ffi.NULL:
            if self._lost == 0:
                return None
            count, self._lost = self._lost, 0
            return Message(0, LOST, -1, 0, None, count, b"")
        try:
            reason = None if c.reason == -1 else int(c.reason)
            data = bytes(ffi.buffer(c.data, c.length)) if c.length else b""
            return Message(c.request, c.status, c.profile, c.result, reason, c.id, data)
        finally:
            lib.qv_message_free(c)

    def wait(self, deadline: float | None) -> bool:
        """Waits until something may be there; False when the deadline has passed. Ctrl-C ends the wait."""
        if not self.is_ours():
            raise NotRegisteredError(Status.NETCM_ERR_NOT_REGISTERED, "wait")
        poll = select.poll()
        poll.register(self.descriptor, select.POLLIN)
        left = None if deadline is None else max(0, math.ceil((deadline - time.monotonic()) * 1000))
        return bool(poll.poll(left))

    def get(self, deadline: float | None) -> Message | None:
        """The next message; nothing when the deadline has passed."""
        while (message := self.take()) is None:
            if not self.wait(deadline):
                return self.take()
        return message


def deadline_in(timeout: float | None) -> float | None:
    return None if timeout is None else time.monotonic() + timeout
