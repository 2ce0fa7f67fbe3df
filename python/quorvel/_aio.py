"""Clients and connections for asyncio. Everything arrives on the loop; no other thread runs any Python."""

from __future__ import annotations

import asyncio
import warnings
import weakref
from collections import deque
from types import TracebackType
from typing import Any, AsyncIterator, Callable, Coroutine, Generator, TypeVar

from . import _requests as requests
from ._client import END_TIME, send, start
from ._errors import NotActiveError, NotRegisteredError, Status, check, error_of
from ._mailbox import LOST, Mailbox, Message, numbers
from ._native import ffi, lib
from ._records import AddressChanged, ConnectionInfo, Event, EventsLost, Host, Opened, event_of, is_end
from ._requests import Request, awaits

T = TypeVar("T")

# Events that nobody has read yet.
MOST_EVENTS = 4096


class _Reader:
    """Hands the messages of a mailbox to somebody, for as long as he is there. The loop refers to this object, and not
    to him, so that one who is forgotten is noticed."""

    def __init__(self, loop: asyncio.AbstractEventLoop, box: Mailbox, take: Callable[[Message], None]) -> None:
        self.loop = loop
        self.box = box
        self._take = weakref.WeakMethod(take)
        self._is_reading = True
        loop.add_reader(box.descriptor, self._read)

    def _read(self) -> None:
        while self._is_reading and (message := self.box.take()) is not None:
            take = self._take()
            if take is None:
                self.stop()
            else:
                take(message)

    def stop(self) -> None:
        """On the loop's thread."""
        # The selector of a loop that a fork has copied is the parent's.
        if self._is_reading and self.box.is_ours() and not self.loop.is_closed():
            self.loop.remove_reader(self.box.descriptor)
        self._is_reading = False

    def stop_from_anywhere(self) -> None:
        if self._is_reading and not self.loop.is_closed():
            try:
                self.loop.call_soon_threadsafe(self.stop)
            except RuntimeError:
                pass  # it has been closed meanwhile


class _Events:
    """Events until somebody awaits them."""

    def __init__(self) -> None:
        self._events: deque[Event] = deque()
        self._lost = 0
        self._has_changed = asyncio.Event()
        self.is_over = False

    def put(self, event: Event, must_come: bool) -> None:
        if len(self._events) >= MOST_EVENTS and not must_come:
            self._lost += 1
        else:
            self._events.append(event)
        self._has_changed.set()

    def finish(self) -> None:
        self.is_over = True
        self._has_changed.set()

    async def get(self) -> Event | None:
        """Nothing when there will be none any more."""
        while True:
            if self._events:
                return self._events.popleft()
            if self._lost:
                lost, self._lost = self._lost, 0
                return EventsLost(-1, count=lost)
            if self.is_over:
                return None
            self._has_changed.clear()
            await self._has_changed.wait()


class AsyncClient:
    """A registration with the CM server, on the event loop that it is entered on. Up to 16 live in a process.

        async with quorvel.AsyncClient() as client:
            ...

    A task that is cancelled leaves nothing behind: what it has asked for is done without it, and a connection that it
    has waited for is closed again.
    """

    def __init__(self) -> None:
        self._number = 0
        self._loop: asyncio.AbstractEventLoop | None = None
        self._answers: dict[int, asyncio.Future[Message]] = {}
        self._listeners: list[Callable[[Event], object]] = []

    async def start(self) -> None:
        """Registers; `async with` does so."""
        if self._loop is not None:
            raise RuntimeError("a client is started once")
        self._loop = asyncio.get_running_loop()
        self._box = Mailbox()
        self._events = _Events()
        own_number, answer = self._expect()
        try:
            self._number = start(self._box, self._box, own_number)
            self._reader = _Reader(self._loop, self._box, self._on_message)
            check((await answer).status, "register")
        except BaseException:
            self.leave()
            raise

    def _expect(self) -> tuple[int, asyncio.Future[Message]]:
        own_number = next(numbers)
        answer: asyncio.Future[Message] = asyncio.get_running_loop().create_future()
        self._answers[own_number] = answer
        answer.add_done_callback(lambda _: self._answers.pop(own_number, None))
        return own_number, answer

    def _on_message(self, message: Message) -> None:
        if message.request == 0:
            event = event_of(message)
            self._events.put(event, must_come=message.status == LOST)
            self._tell(event)
            return
        answer = self._answers.get(message.request)
        if answer is not None and not answer.done():
            answer.set_result(message)

    def _tell(self, event: Event) -> None:
        """Each by itself: what one raises goes to the loop's exception handler, and the others hear of the event."""
        assert self._loop is not None
        for listener in list(self._listeners):
            self._loop.call_soon(listener, event)

    def _is_alive(self) -> bool:
        """Whether it has been started, is not closed, and is this process's."""
        return self._number != 0 and self._box.is_ours()

    async def _ask(self, request: Request[T], route: Mailbox | None = None) -> T:
        if not self._is_alive():
            raise NotRegisteredError(Status.NETCM_ERR_NOT_REGISTERED, request.name)
        if asyncio.get_running_loop() is not self._loop:
            raise RuntimeError("the client is another event loop's")
        own_number, answer = self._expect()
        try:
            send(self._number, request, self._box, own_number, route)
            message = await asyncio.wait_for(answer, request.timeout)
        except asyncio.TimeoutError:
            raise TimeoutError(f"{request.name}: no answer within {request.timeout} s") from None
        finally:
            answer.cancel()
            lib.qv_client_forget(self._number, own_number)
        return request.result(message)

    def connect(self, profile: int | str | None = None) -> AsyncConnecting:
        """Opens a connection: of a profile's id or name; None is the default profile. To be awaited, or entered with
        `async with`, which closes it at its end."""
        return AsyncConnecting(self._connect(profile))

    async def _connect(self, profile: int | str | None) -> AsyncConnection:
        if isinstance(profile, str):
            profile = requests.id_of_name(profile, await self.profiles.list())
        connection = AsyncConnection(self, requests.open_profile(profile or 0))
        try:
            await connection._open()
        except BaseException:
            connection.leave()
            raise
        return connection

    def add_listener(self, listener: Callable[[Event], object]) -> None:
        """Has it called on the loop with every event of the client and of its connections."""
        self._listeners.append(listener)

    def remove_listener(self, listener: Callable[[Event], object]) -> None:
        self._listeners.remove(listener)

    async def next_event(self) -> Event:
        """The next event that is no connection's: the state of the network, tunnel data. NotRegisteredError when the
        client is closed."""
        event = await self._events.get() if self._loop is not None else None
        if event is None:
            raise NotRegisteredError(Status.NETCM_ERR_NOT_REGISTERED, "wait for an event")
        return event

    async def __aiter__(self) -> AsyncIterator[Event]:
        """The events that are no connection's, until the client is closed."""
        while self._loop is not None and (event := await self._events.get()) is not None:
            yield event

    @property
    def profiles(self) -> AsyncProfiles:
        return AsyncProfiles(self)

    @property
    def applications(self) -> AsyncApplications:
        return AsyncApplications(self)

    async def resolve(self, profile_id: int, name: str) -> Host:
        """Resolves a host name over the connection of a profile, from the cache where it can."""
        return await self._ask(requests.resolve(profile_id, name))

    kill = awaits(requests.kill)
    clean_up = awaits(requests.clean_up)
    network_status = awaits(requests.network_status)
    interfaces = awaits(requests.interfaces)
    get_setting = awaits(requests.get_setting)
    set_setting = awaits(requests.set_setting)
    get_packet_data = awaits(requests.get_packet_data)
    set_packet_data = awaits(requests.set_packet_data)
    statistics = awaits(requests.statistics)
    reset_statistics = awaits(requests.reset_statistics)
    active_profiles = awaits(requests.active_profiles)
    active_profile_names = awaits(requests.active_profile_names)
    active_connections = awaits(requests.active_connections)
    tunnel = awaits(requests.tunnel)
    register_tunnel = awaits(requests.register_tunnel)
    deregister_tunnel = awaits(requests.deregister_tunnel)
    change_payment = awaits(requests.change_payment)

    async def close(self) -> None:
        """Closes what the client has open, and ends it. TimeoutError when the server does not confirm it within ten
        seconds: it goes on in the background then, as when this is cancelled."""
        is_alive = self._is_alive()
        number, self._number = self._number, 0
        if not is_alive:
            return
        own_number, answer = self._expect()
        try:
            if lib.qv_client_end(number, self._box.c, own_number) == Status.NETCM_SUCCESS:
                await asyncio.wait_for(answer, END_TIME)
        except asyncio.TimeoutError:
            raise TimeoutError(f"the end of the client has not been confirmed within {END_TIME:.0f} s") from None
        finally:
            answer.cancel()
            self._finish()

    def leave(self) -> None:
        """The same without waiting."""
        number, self._number = self._number, 0
        lib.qv_client_end(number, ffi.NULL, 0)
        self._finish()

    def _finish(self) -> None:
        if hasattr(self, "_reader"):
            self._reader.stop()
        self._events.finish()
        for answer in list(self._answers.values()):
            answer.cancel()

    async def __aenter__(self) -> AsyncClient:
        await self.start()
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.close()

    def __del__(self) -> None:
        if self._is_alive():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            lib.qv_client_end(self._number, ffi.NULL, 0)
            self._reader.stop_from_anywhere()


class _Part:
    """A group of a client's methods."""

    def __init__(self, client: AsyncClient) -> None:
        self._ask = client._ask


class AsyncProfiles(_Part):
    """The stored profiles."""

    add = awaits(requests.add_profile)
    change = awaits(requests.change_profile)
    delete = awaits(requests.delete_profile)
    read = awaits(requests.read_profile)
    status = awaits(requests.profile_status)
    attributes = awaits(requests.profile_attributes)
    default = awaits(requests.default_profile)
    default_id = awaits(requests.default_profile_id)
    set_default = awaits(requests.set_default_profile)
    ids = awaits(requests.profile_ids)
    list = awaits(requests.list_profiles)
    find = awaits(requests.find_profiles)
    restore = awaits(requests.restore_profiles)


class AsyncApplications(_Part):
    """Which profile an application uses."""

    add = awaits(requests.add_application)
    delete = awaits(requests.delete_application)
    is_known = awaits(requests.knows_application)
    read = awaits(requests.read_application)
    change = awaits(requests.change_application)
    set_profile = awaits(requests.set_application_profile)
    proper_profile = awaits(requests.proper_profile)


class AsyncConnection:
    """A connection that is up, or has been. `async for` gives what happens to it, and ends with it. `info` follows a
    change of the address."""

    info: ConnectionInfo

    def __init__(self, client: AsyncClient, request: Request[None]) -> None:
        self.client = client
        self.end: Event | None = None
        self._request = request
        self._is_left = False
        self._box = Mailbox()
        self._events = _Events()
        self._outcome: asyncio.Future[Event] = asyncio.get_running_loop().create_future()

    async def _open(self) -> None:
        self._reader = _Reader(asyncio.get_running_loop(), self._box, self._on_message)
        await self.client._ask(self._request, self._box)
        event = await self._outcome
        if not isinstance(event, Opened) or event.info is None:
            raise error_of(event.result, self._request.name, event.reason)

    def _on_message(self, message: Message) -> None:
        event = event_of(message)
        if isinstance(event, Opened | AddressChanged) and event.info is not None:
            self.info = event.info
        if is_end(event):
            self.end = event
        if not self._outcome.done():
            self._outcome.set_result(event)
        else:
            self._events.put(event, must_come=self.end is not None)
        self.client._tell(event)
        if self.end is not None:
            self._finish()

    def _finish(self) -> None:
        if hasattr(self, "_reader"):
            self._reader.stop()
        self._events.finish()

    @property
    def profile_id(self) -> int:
        return self.info.profile_id

    @property
    def is_open(self) -> bool:
        """Whether its end has not been told yet."""
        return self.end is None and not self._is_left

    async def next_event(self) -> Event:
        """The next thing that happens to it. NotActiveError when its end was told."""
        event = await self._events.get()
        if event is None:
            raise NotActiveError(Status.NETCM_ERR_NOT_ACTIVE, "wait for an event")
        return event

    async def __aiter__(self) -> AsyncIterator[Event]:
        while (event := await self._events.get()) is not None:
            yield event

    async def resolve(self, name: str) -> Host:
        """Resolves a host name over the connection, from the cache where it can."""
        return await self.client.resolve(self.profile_id, name)

    async def close(self) -> None:
        """Closes it and waits until it is. TimeoutError when the server does not confirm it within ten seconds: it is
        closed in the background then, as when this is cancelled."""
        if not self.is_open:
            return
        try:
            await self.client._ask(requests.close_profile(self.profile_id))
        except NotActiveError:
            pass  # it has ended by itself; that is told
        except NotRegisteredError:
            self._is_left = True  # with its client
            return
        try:
            await asyncio.wait_for(self._until_end(), END_TIME)
        except asyncio.TimeoutError:
            raise TimeoutError(f"the close of profile {self.profile_id} has not been confirmed") from None
        finally:
            if self.is_open:
                self.leave()

    async def _until_end(self) -> None:
        while self.is_open:
            await self._events.get()

    def leave(self) -> None:
        """Has it closed in the background, and waits for nothing."""
        self._is_left = True
        lib.qv_client_abandon(self.client._number, self._box.c)
        self._finish()

    async def __aenter__(self) -> AsyncConnection:
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self.close()

    def __del__(self) -> None:
        if hasattr(self, "info") and self.is_open and self.client._is_alive():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            lib.qv_client_abandon(self.client._number, self._box.c)
            self._reader.stop_from_anywhere()

    def __repr__(self) -> str:
        if not hasattr(self, "info"):
            return f"<{type(self).__name__}, not open yet>"
        state = "open" if self.is_open else "closed"
        return f"<{type(self).__name__} of profile {self.profile_id}, {state}>"


class AsyncConnecting:
    """A connection that is being opened: to be awaited, or entered."""

    def __init__(self, opening: Coroutine[Any, Any, AsyncConnection]) -> None:
        self._opening = opening

    def __await__(self) -> Generator[Any, None, AsyncConnection]:
        return self._opening.__await__()

    async def __aenter__(self) -> AsyncConnection:
        self._connection = await self
        return self._connection

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self._connection.close()
