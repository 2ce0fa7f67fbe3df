"""Records and events, as they are given to an application."""

from __future__ import annotations

import enum
import struct
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Any

from ._mailbox import LOST, Message
from ._native import ffi, lib


class Interface(enum.IntFlag):
    """Kinds of network interfaces; a list of them is a combination."""

    PACKET_DATA = 1
    WIFI = 2


@dataclass(frozen=True, slots=True)
class OtherAddress:
    """An address that is not IPv4: its type and its 16 bytes, in the server's sense."""

    type: int
    data: bytes


Address = IPv4Address | OtherAddress

NO_ADDRESS = IPv4Address(0)


def address_of(c: Any) -> Address:
    data = bytes(ffi.buffer(c.Addr))
    return IPv4Address(data[:4]) if c.Type == 0 else OtherAddress(c.Type, data)


def record_of(kind: str, data: bytes | bytearray) -> Any:
    """A record in bytes that are enough for it."""
    if len(data) < ffi.sizeof(kind):
        raise ValueError(f"{kind} has {ffi.sizeof(kind)} bytes, not {len(data)}")
    return ffi.from_buffer(kind + " *", data)


def text_of(c: Any) -> str:
    """A text of at most its field's length, with or without its NUL."""
    return bytes(ffi.string(c)).decode(errors="surrogateescape")


@dataclass(frozen=True, slots=True)
class ConnectionInfo:
    """The details of a connection. The optional addresses have the server's meaning."""

    profile_id: int
    interface: str
    address: Address
    dns_servers: tuple[Address, ...] = ()
    optional_addresses: tuple[Address | None, Address | None] = (None, None)


def info_of(data: bytes) -> ConnectionInfo:
    c = record_of("NetCMConnInfo", data)
    servers = (address_of(c.DnsAddr[i]) for i in range(min(max(c.DnsCount, 0), 2)))
    return ConnectionInfo(
        profile_id=c.ProfileId,
        interface=text_of(c.IfaceName),
        address=address_of(c.IpAddr),
        dns_servers=tuple(server for server in servers if server != NO_ADDRESS),
        optional_addresses=(
            address_of(c.OptAddr1) if c.HasOptAddr1 == 1 else None,
            address_of(c.OptAddr2) if c.HasOptAddr2 == 1 else None,
        ),
    )


@dataclass(frozen=True, slots=True)
class Event:
    """What the CM server tells. The result is 0 or its status; the reason is its word, where it gave one."""

    profile_id: int
    result: int = 0
    reason: int | None = None


@dataclass(frozen=True, slots=True)
class Opened(Event):
    """The outcome of an open."""

    info: ConnectionInfo | None = None


@dataclass(frozen=True, slots=True)
class Closed(Event):
    """The connection has been closed."""


@dataclass(frozen=True, slots=True)
class Killed(Event):
    """The connection has been killed, as this client has asked."""


@dataclass(frozen=True, slots=True)
class Stopped(Event):
    """The connection has ended: by the network (result 21 and a reason), by somebody's kill (22), or because the server
    has gone (2)."""


@dataclass(frozen=True, slots=True)
class Suspended(Event):
    """The carrier is gone."""


@dataclass(frozen=True, slots=True)
class Resumed(Event):
    """The carrier is back."""


@dataclass(frozen=True, slots=True)
class AddressChanged(Event):
    """The connection has another address."""

    info: ConnectionInfo | None = None


@dataclass(frozen=True, slots=True)
class TunnelResponse(Event):
    """The answer to a tunnel request for which nobody waits any more."""

    request_id: int = 0
    data: bytes = b""


@dataclass(frozen=True, slots=True)
class TunnelIndication(Event):
    """Tunnel data of the server's own, for those who have registered for it."""

    request_id: int = 0
    data: bytes = b""


@dataclass(frozen=True, slots=True)
class NetworkStatusChanged(Event):
    """The state of the network, in the server's numbers."""

    packet_data: int = 0
    wifi: int = 0


@dataclass(frozen=True, slots=True)
class EventsLost(Event):
    """So many events were not taken in time and have found no room. Ends of connections are never among them."""

    count: int = 0


@dataclass(frozen=True, slots=True)
class UnknownEvent(Event):
    """An event that this version has no name for."""

    type: int = 0


_PLAIN: dict[int, type[Event]] = {
    lib.NETCM_EVENT_CLOSE_RSP: Closed,
    lib.NETCM_EVENT_KILL_RSP: Killed,
    lib.NETCM_EVENT_STOP_IND: Stopped,
    lib.NETCM_EVENT_SUSPEND_IND: Suspended,
    lib.NETCM_EVENT_RESUME_IND: Resumed,
}

_WITH_INFO: dict[int, type[Opened] | type[AddressChanged]] = {
    lib.NETCM_EVENT_OPEN_RSP: Opened,
    lib.NETCM_EVENT_IP_CHANGE_IND: AddressChanged,
}


def event_of(message: Message) -> Event:
    kind = message.status
    base = (message.profile, message.result, message.reason)
    if kind == LOST:
        return EventsLost(-1, count=message.id)
    if kind in _PLAIN:
        return _PLAIN[kind](*base)
    if kind in _WITH_INFO:
        return _WITH_INFO[kind](*base, info_of(message.data) if message.data else None)
    if kind == lib.NETCM_EVENT_TUNNEL_RSP:
        return TunnelResponse(*base, message.id, message.data)
    if kind == lib.NETCM_EVENT_TUNNEL_IND:
        return TunnelIndication(*base, message.id, message.data)
    if kind == lib.NETCM_EVENT_NETWORK_STATUS_IND and len(message.data) == 8:
        return NetworkStatusChanged(*base, *struct.unpack("=2i", message.data))
    return UnknownEvent(*base, kind)


def is_end(event: Event) -> bool:
    """Whether this is the last that is told of a connection."""
    return isinstance(event, Closed | Killed | Stopped) or (isinstance(event, Opened) and event.result != 0)


@dataclass(frozen=True, slots=True)
class ActiveConnection:
    """A connection of the device: whose it is, the server does not say. What is behind is the server's own."""

    interface: Interface
    profile_id: int
    network_name: str
    data: bytes


@dataclass(frozen=True, slots=True)
class Statistics:
    """What has gone over connections."""

    received_bytes: int
    sent_bytes: int
    received_packets: int
    sent_packets: int
    receive_errors: int
    send_errors: int


@dataclass(frozen=True, slots=True)
class ProfileSummary:
    """A stored profile in a list. The network name is its APN or its ESSID."""

    id: int
    type: Interface
    name: str
    network_name: str


@dataclass(slots=True)
class Application:
    """Which profile an application uses, and over which interfaces; the parameter is the server's."""

    id: int
    profile_id: int = 0
    interfaces: tuple[Interface, Interface] = (Interface(0), Interface(0))
    parameter: int = 0


@dataclass(frozen=True, slots=True)
class Host:
    """A host name that has been resolved."""

    name: str
    addresses: tuple[IPv4Address, ...]
    aliases: tuple[str, ...] = ()
