"""Clients and connections for those who wait."""

from __future__ import annotations

import warnings
from types import TracebackType
from typing import Any, Iterator, TypeVar

from . import _requests as requests
from ._errors import NotActiveError, NotRegisteredError, Status, check, error_of
from ._mailbox import Mailbox, deadline_in, numbers
from ._native import ffi, lib
from ._records import AddressChanged, ConnectionInfo, Event, Host, Opened, event_of, is_end
from ._requests import Request, waits

T = TypeVar("T")

# How long the server may take to confirm an end.
END_TIME = 10.0


def start(events: Mailbox, answers: Mailbox, request: int) -> int:
    """Starts the thread of a client: its number."""
    number: int = lib.qv_client_start(events.c, answers.c, request)
    if number <= -1000:
        raise OSError(-number - 1000, "no thread for the client")
    if number < 0:
        raise error_of(-number, "register")
    return number


def send(
    number: int, request: Request[Any], answers: Mailbox, own_number: int, route: Mailbox | None = None
) -> None:
    """Puts a request behind the others of a client."""
    text = ffi.from_buffer(request.data) if request.data else ffi.NULL
    box = ffi.NULL if route is None else route.c
    status = lib.qv_client_ask(
        number, request.operation, request.a, request.b, text, len(request.data), answers.c, own_number, box
    )
    check(status, request.name)


class Client:
    """A registration with the CM server. Any thread may use it; up to 16 of them live in a process.

    Use it as a context manager: it ends with its connections.
    """

    _number = 0

    def __init__(self) -> None:
        self._events = Mailbox()
        answers = Mailbox()
        number = start(self._events, answers, next(numbers))
        try:
            answer = answers.get(None)
            check(answer.status if answer else 0, "register")
        except BaseException:
            lib.qv_client_end(number, ffi.NULL, 0)
            raise
        self._number = number

    def _ask(self, request: Request[T], route: Mailbox | None = None) -> T:
        answers = Mailbox()
        own_number = next(numbers)
        send(self._number, request, answers, own_number, route)
        try:
            answer = answers.get(deadline_in(request.timeout))
        except BaseException:
            lib.qv_client_forget(self._number, own_number)
            raise
        if answer is None:
            lib.qv_client_forget(self._number, own_number)
            raise TimeoutError(f"{request.name}: no answer within {request.timeout} s")
        return request.result(answer)

    def connect(self, profile: int | str | None = None, *, timeout: float | None = None) -> Connection:
        """Opens a connection and waits until it is up: of a profile's id or name; None is the default profile.

        A wait that ends early, by the time-out (TimeoutError) or Ctrl-C, leaves no connection behind.
        """
        deadline = deadline_in(timeout)
        if isinstance(profile, str):
            profile = requests.id_of_name(profile, self.profiles.list())
        box = Mailbox()
        request = requests.open_profile(profile or 0)
        try:
            self._ask(request, box)
            message = box.get(deadline)
            if message is None:
                raise TimeoutError(f"{request.name}: not up within {timeout} s")
            event = event_of(message)
            if not isinstance(event, Opened) or event.info is None:
                raise error_of(event.result, request.name, event.reason)
        except BaseException:
            lib.qv_client_abandon(self._number, box.c)
            raise
        return Connection(self, box, event.info)

    def next_event(self, timeout: float | None = None) -> Event:
        """The next event that is no connection's: the state of the network, tunnel data. TimeoutError when none comes;
        NotRegisteredError when the client is closed."""
        deadline = deadline_in(timeout)
        while (message := self._events.take()) is None:
            if not self._is_alive():
                raise NotRegisteredError(Status.NETCM_ERR_NOT_REGISTERED, "wait for an event")
            if not self._events.wait(deadline):
                raise TimeoutError(f"no event within {timeout} s")
        return event_of(message)

    def __iter__(self) -> Iterator[Event]:
        """The events that are no connection's, until the client is closed."""
        try:
            while True:
                yield self.next_event()
        except NotRegisteredError:
            return

    @property
    def profiles(self) -> Profiles:
        return Profiles(self)

    @property
    def applications(self) -> Applications:
        return Applications(self)

    def resolve(self, profile_id: int, name: str) -> Host:
        """Resolves a host name over the connection of a profile, from the cache where it can."""
        return self._ask(requests.resolve(profile_id, name))

    kill = waits(requests.kill)
    clean_up = waits(requests.clean_up)
    network_status = waits(requests.network_status)
    interfaces = waits(requests.interfaces)
    get_setting = waits(requests.get_setting)
    set_setting = waits(requests.set_setting)
    get_packet_data = waits(requests.get_packet_data)
    set_packet_data = waits(requests.set_packet_data)
    statistics = waits(requests.statistics)
    reset_statistics = waits(requests.reset_statistics)
    active_profiles = waits(requests.active_profiles)
    active_profile_names = waits(requests.active_profile_names)
    active_connections = waits(requests.active_connections)
    tunnel = waits(requests.tunnel)
    register_tunnel = waits(requests.register_tunnel)
    deregister_tunnel = waits(requests.deregister_tunnel)
    change_payment = waits(requests.change_payment)

    def _is_alive(self) -> bool:
        """Whether it has been started, is not closed, and is this process's."""
        return self._number != 0 and self._events.is_ours()

    def close(self) -> None:
        """Closes what the client has open, and ends it. TimeoutError when the server does not confirm it within ten
        seconds: it goes on in the background then."""
        number, self._number = self._number, 0
        answers = Mailbox()
        if number == 0 or lib.qv_client_end(number, answers.c, next(numbers)) != Status.NETCM_SUCCESS:
            return
        if answers.get(deadline_in(END_TIME)) is None:
            raise TimeoutError(f"the end of the client has not been confirmed within {END_TIME:.0f} s")

    def leave(self) -> None:
        """The same without waiting."""
        number, self._number = self._number, 0
        lib.qv_client_end(number, ffi.NULL, 0)

    def __enter__(self) -> Client:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if self._is_alive():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self.leave()


class _Part:
    """A group of a client's methods."""

    def __init__(self, client: Client) -> None:
        self._ask = client._ask


class Profiles(_Part):
    """The stored profiles."""

    add = waits(requests.add_profile)
    change = waits(requests.change_profile)
    delete = waits(requests.delete_profile)
    read = waits(requests.read_profile)
    status = waits(requests.profile_status)
    attributes = waits(requests.profile_attributes)
    default = waits(requests.default_profile)
    default_id = waits(requests.default_profile_id)
    set_default = waits(requests.set_default_profile)
    ids = waits(requests.profile_ids)
    list = waits(requests.list_profiles)
    find = waits(requests.find_profiles)
    restore = waits(requests.restore_profiles)


class Applications(_Part):
    """Which profile an application uses."""

    add = waits(requests.add_application)
    delete = waits(requests.delete_application)
    is_known = waits(requests.knows_application)
    read = waits(requests.read_application)
    change = waits(requests.change_application)
    set_profile = waits(requests.set_application_profile)
    proper_profile = waits(requests.proper_profile)


class Connection:
    """A connection that is up, or has been. Use it as a context manager: it is closed with its block.

    As an iterator it gives what happens to it, and ends with it. `info` follows a change of the address.
    """

    def __init__(self, client: Client, box: Mailbox, info: ConnectionInfo) -> None:
        self.client = client
        self.info = info
        self.end: Event | None = None
        self._box = box
        self._is_left = False

    @property
    def profile_id(self) -> int:
        return self.info.profile_id

    @property
    def is_open(self) -> bool:
        """Whether its end has not been read yet."""
        return self.end is None and not self._is_left

    def _take(self) -> Event | None:
        message = self._box.take()
        if message is None:
            return None
        event = event_of(message)
        if isinstance(event, AddressChanged) and event.info is not None:
            self.info = event.info
        if is_end(event):
            self.end = event
        return event

    def _next(self, deadline: float | None) -> Event | None:
        """Nothing when it has ended, or the deadline has passed."""
        while (event := self._take()) is None:
            if self.end is not None or not self._box.wait(deadline):
                return self._take()
        return event

    def next_event(self, timeout: float | None = None) -> Event:
        """The next thing that happens to it. TimeoutError when nothing does; NotActiveError when its end was told."""
        event = self._next(deadline_in(timeout))
        if event is not None:
            return event
        if self.end is None:
            raise TimeoutError(f"no event within {timeout} s")
        raise NotActiveError(Status.NETCM_ERR_NOT_ACTIVE, "wait for an event")

    def __iter__(self) -> Iterator[Event]:
        while (event := self._next(None)) is not None:
            yield event

    def resolve(self, name: str) -> Host:
        """Resolves a host name over the connection, from the cache where it can."""
        return self.client.resolve(self.profile_id, name)

    def close(self) -> None:
        """Closes it and waits until it is. TimeoutError when the server does not confirm it within ten seconds: it is
        closed in the background then."""
        if not self.is_open:
            return
        try:
            self.client._ask(requests.close_profile(self.profile_id))
        except NotActiveError:
            pass  # it has ended by itself; that is told
        except NotRegisteredError:
            self._is_left = True  # with its client
            return
        deadline = deadline_in(END_TIME)
        while self.end is None:
            if self._next(deadline) is None and self.end is None:
                self.leave()
                raise TimeoutError(f"the close of profile {self.profile_id} has not been confirmed")

    def leave(self) -> None:
        """Has it closed in the background, and waits for nothing."""
        self._is_left = True
        lib.qv_client_abandon(self.client._number, self._box.c)

    def __enter__(self) -> Connection:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if self.is_open and self.client._is_alive():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self.leave()

    def __repr__(self) -> str:
        state = "open" if self.is_open else "closed"
        return f"<{type(self).__name__} of profile {self.profile_id}, {state}>"
