"""One query to one name server, and the cache. These wait, four seconds at most, and need no client; where a loop must
go on meanwhile: `await asyncio.to_thread(names.query, ...)`."""

from __future__ import annotations

from ipaddress import IPv4Address
from typing import Any, Callable

from ._errors import NameNotFoundError
from ._native import ffi, lib
from ._records import Host

_ROOM = 2048
_TOO_SMALL = -1  # or the name is none

_MEANINGS = {
    _TOO_SMALL: "the name is too long, or has an empty or a too long label",
    2: "the name server does not answer, or has failed",
    3: "the name server refuses the query",
    4: "there is no such name",
}


def _ask(what: str, ask: Callable[[Any, int, Any, Any], Any]) -> Host:
    room = _ROOM
    while True:
        buffer = ffi.new("char[]", room)
        error = ffi.new("int *")
        needed = ffi.new("int *")
        host = ask(buffer, room, error, needed)
        if host != ffi.NULL:
            return _host_of(host)
        if error[0] != _TOO_SMALL or needed[0] <= room or room >= 1 << 16:
            raise NameNotFoundError(f"{what}: {_MEANINGS.get(error[0], 'the response holds no answer')}")
        room *= 2


def _host_of(c: Any) -> Host:
    name = ffi.string(c.h_name).decode(errors="surrogateescape") if c.h_name != ffi.NULL else ""
    addresses = tuple(IPv4Address(bytes(ffi.buffer(address, 4))) for address in _until_null(c.h_addr_list))
    aliases = tuple(ffi.string(alias).decode(errors="surrogateescape") for alias in _until_null(c.h_aliases))
    return Host(name, addresses, aliases)


def _until_null(array: Any) -> list[Any]:
    values: list[Any] = []
    while array[len(values)] != ffi.NULL:
        values.append(array[len(values)])
    return values


def _interface(name: str | None) -> Any:
    return ffi.NULL if name is None else name.encode()


def query(name: str, server: IPv4Address | str, interface: str | None = None) -> Host:
    """Asks a name server for a host's addresses, over a network interface or as the system routes it."""

    def ask(buffer: Any, room: int, error: Any, needed: Any) -> Any:
        return lib.dnet_gethostbyname_r(
            str(server).encode(), _interface(interface), name.encode(), buffer, room, error, ffi.NULL, needed
        )

    return _ask(name, ask)


def reverse(address: IPv4Address | str, server: IPv4Address | str, interface: str | None = None) -> Host:
    """Asks a name server for the name of an address."""
    packed = IPv4Address(address).packed

    def ask(buffer: Any, room: int, error: Any, needed: Any) -> Any:
        return lib.dnet_gethostbyaddr_r(
            str(server).encode(), _interface(interface), packed, 4, 2, buffer, room, error, ffi.NULL, needed
        )

    return _ask(str(address), ask)


def clear_cache() -> None:
    """Empties the cache of names, which is one for the process."""
    lib.clear_dns_cache()
