"""What the library says when it does not do what it is asked."""

from __future__ import annotations

import enum


class Status(enum.IntEnum):
    """The library's status codes; the CM server's own numbers are none of these."""

    NETCM_SUCCESS = 0
    NETCM_ERR_FAILURE = 1
    NETCM_ERR_REREGISTER_FAILED = 2
    NETCM_ERR_ALREADY_REGISTERED = 3
    NETCM_ERR_REREGISTER_RETRY_EXHAUSTED = 4
    NETCM_ERR_NO_FREE_ENTRY = 5
    NETCM_ERR_NOT_REGISTERED = 6
    NETCM_ERR_INVALID_PROFILE = 7
    NETCM_ERR_NOT_ACTIVE = 9
    NETCM_ERR_ALREADY_EXISTS = 10
    NETCM_ERR_CLOSING = 11
    NETCM_ERR_CALL_CLOSING = 13
    NETCM_ERR_MAX_LIMIT = 14
    NETCM_ERR_NO_FREE_KILL_ENTRY = 16
    NETCM_ERR_NO_FREE_TUNNEL_ENTRY = 17
    NETCM_ERR_INVALID_PARAM = 19


_MEANINGS = {
    Status.NETCM_ERR_FAILURE: "the exchange with the CM server failed, or memory ran out",
    Status.NETCM_ERR_REREGISTER_FAILED: "the link to the CM server is broken and could not be repaired",
    Status.NETCM_ERR_ALREADY_REGISTERED: "already registered",
    Status.NETCM_ERR_REREGISTER_RETRY_EXHAUSTED: "the CM server could not be reached in three attempts; is it running?",
    Status.NETCM_ERR_NO_FREE_ENTRY: "the process has 16 clients already",
    Status.NETCM_ERR_NOT_REGISTERED: "the client is closed, belongs to another process, or has no connection",
    Status.NETCM_ERR_INVALID_PROFILE: "invalid profile",
    Status.NETCM_ERR_NOT_ACTIVE: "there is no such connection, or it is not this client's",
    Status.NETCM_ERR_ALREADY_EXISTS: "the client has this connection already",
    Status.NETCM_ERR_CLOSING: "the client has asked to kill this connection already",
    Status.NETCM_ERR_CALL_CLOSING: "the connection is being closed",
    Status.NETCM_ERR_MAX_LIMIT: "no room for another user or profile on this connection",
    Status.NETCM_ERR_NO_FREE_KILL_ENTRY: "four kills are pending already",
    Status.NETCM_ERR_NO_FREE_TUNNEL_ENTRY: "twenty tunnel requests are pending already",
    Status.NETCM_ERR_INVALID_PARAM: "an argument is out of range",
}


class Error(Exception):
    """The library, or the CM server behind it, has not done what was asked.

    status     the status code, also where it is the server's own
    name       its name, such as "NETCM_ERR_NOT_ACTIVE"; "status 103" for one of the server's
    reason     the server's reason word, where it gave one
    operation  what was asked
    """

    def __init__(self, status: int, operation: str, reason: int | None = None) -> None:
        self.status = status
        self.operation = operation
        self.reason = reason
        known = status in Status.__members__.values()
        self.name = Status(status).name if known else f"status {status}"
        text = f"{operation}: {self.name}"
        if known and status != Status.NETCM_SUCCESS:
            text += f" ({status}): {_MEANINGS[Status(status)]}"
        elif not known:
            text += " of the CM server"
        if reason is not None:
            text += f", reason {reason}"
        super().__init__(text)

    def __reduce__(self) -> tuple[type[Error], tuple[int, str, int | None]]:
        return type(self), (self.status, self.operation, self.reason)


class ExchangeError(Error):
    """An answer did not come or was another one, or memory ran out."""


class LinkError(Error):
    """There is no CM server, or the link to it is broken."""


class NotRegisteredError(Error):
    """The client is closed, or belongs to the process that this one was forked from."""


class InvalidProfileError(Error):
    """There is no such profile."""


class NotActiveError(Error):
    """There is no such connection."""


class AlreadyExistsError(Error):
    """The client has this connection already."""


class ClosingError(Error):
    """The connection is being closed or killed; it can be opened again when it has ended."""


class LimitError(Error):
    """Something of which there is a fixed number is used up."""


class InvalidParameterError(Error, ValueError):
    """An argument is out of range."""


class RefusedError(Error):
    """The CM server has refused; the status is its own, and so is the reason."""


_CLASSES: dict[int, type[Error]] = {
    Status.NETCM_ERR_FAILURE: ExchangeError,
    Status.NETCM_ERR_REREGISTER_FAILED: LinkError,
    Status.NETCM_ERR_REREGISTER_RETRY_EXHAUSTED: LinkError,
    Status.NETCM_ERR_NOT_REGISTERED: NotRegisteredError,
    Status.NETCM_ERR_INVALID_PROFILE: InvalidProfileError,
    Status.NETCM_ERR_NOT_ACTIVE: NotActiveError,
    Status.NETCM_ERR_ALREADY_REGISTERED: AlreadyExistsError,
    Status.NETCM_ERR_ALREADY_EXISTS: AlreadyExistsError,
    Status.NETCM_ERR_CLOSING: ClosingError,
    Status.NETCM_ERR_CALL_CLOSING: ClosingError,
    Status.NETCM_ERR_NO_FREE_ENTRY: LimitError,
    Status.NETCM_ERR_MAX_LIMIT: LimitError,
    Status.NETCM_ERR_NO_FREE_KILL_ENTRY: LimitError,
    Status.NETCM_ERR_NO_FREE_TUNNEL_ENTRY: LimitError,
    Status.NETCM_ERR_INVALID_PARAM: InvalidParameterError,
}


def error_of(status: int, operation: str, reason: int | None = None) -> Error:
    return _CLASSES.get(status, RefusedError)(status, operation, reason)


def check(status: int, operation: str, reason: int | None = None) -> None:
    if status != Status.NETCM_SUCCESS:
        raise error_of(status, operation, reason)


class NameNotFoundError(LookupError):
    """A host name could not be resolved, or there is no profile of this name."""
