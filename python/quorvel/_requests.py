"""Everything that can be asked, once for those who wait and those who await: what is sent, and how the answer is read."""

from __future__ import annotations

import functools
import inspect
import re
import struct
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Any, Callable, Concatenate, Coroutine, Generic, ParamSpec, Protocol, TypeVar

from . import _profiles
from ._errors import InvalidProfileError, NameNotFoundError, Status, check
from ._mailbox import Message
from ._native import ffi, lib
from ._profiles import Profile
from ._records import ActiveConnection, Application, Host, Interface, ProfileSummary, Statistics, record_of, text_of

T = TypeVar("T")
P = ParamSpec("P")


@dataclass(frozen=True)
class Request(Generic[T]):
    name: str
    operation: int
    read: Callable[[bytes], T]
    a: int = 0
    b: int = 0
    data: bytes = b""
    timeout: float | None = None
    check: Callable[[int, str, int | None], None] = check

    def result(self, answer: Message) -> T:
        self.check(answer.status, self.name, answer.reason)
        return self.read(answer.data)


class Asks(Protocol):
    def _ask(self, request: Request[T]) -> T: ...


class AsksLater(Protocol):
    async def _ask(self, request: Request[T]) -> T: ...


def _like(build: Callable[..., Any], method: Callable[..., Any]) -> None:
    """Help for the method: the text of its request, and its arguments behind `self`."""
    functools.update_wrapper(method, build)
    del method.__wrapped__  # type: ignore[attr-defined]
    signature = inspect.signature(build)
    own = inspect.Parameter("self", inspect.Parameter.POSITIONAL_ONLY)
    method.__signature__ = signature.replace(  # type: ignore[attr-defined]
        parameters=[own, *signature.parameters.values()], return_annotation=inspect.Signature.empty
    )


def waits(build: Callable[P, Request[T]]) -> Callable[Concatenate[Any, P], T]:
    """A method that makes the request and waits for its answer."""

    def method(self: Asks, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return self._ask(build(*args, **kwargs))

    _like(build, method)
    return method


def awaits(build: Callable[P, Request[T]]) -> Callable[Concatenate[Any, P], Coroutine[Any, Any, T]]:
    """A coroutine method that makes the request and awaits its answer."""

    async def method(self: AsksLater, /, *args: P.args, **kwargs: P.kwargs) -> T:
        return await self._ask(build(*args, **kwargs))

    _like(build, method)
    return method


# ---- reading answers ----


def _nothing(data: bytes) -> None:
    return None


def _unsigned(data: bytes) -> int:
    value: int = struct.unpack("=I", data)[0]
    return value


def _truth(data: bytes) -> bool:
    return _unsigned(data) == 1


def _ids(data: bytes) -> list[int]:
    return list(struct.unpack(f"={len(data) // 4}i", data))


def _text(data: bytes) -> str:
    return data.partition(b"\0")[0].decode(errors="surrogateescape")


def _pieces(data: bytes, size: int) -> list[bytes]:
    return [data[at : at + size] for at in range(0, len(data), size)]


def _type_of(number: int) -> Interface:
    return Interface.WIFI if number == lib.NETPM_PROFILE_WLAN else Interface.PACKET_DATA


# ---- connections ----


def open_profile(profile_id: int) -> Request[None]:
    return Request(f"open profile {profile_id or '(default)'}", lib.QV_OPEN, _nothing, profile_id)


def close_profile(profile_id: int) -> Request[None]:
    return Request(f"close profile {profile_id}", lib.QV_CLOSE, _nothing, profile_id)


def kill(profile_id: int, *, timeout: float | None = 60) -> Request[None]:
    """Tears the connection of a profile down, whoever uses it, and waits until it has gone."""
    return Request(f"kill profile {profile_id}", lib.QV_KILL, _nothing, profile_id, timeout=timeout)


def clean_up() -> Request[None]:
    """Kills every active packet-data connection of the device; takes two seconds for each, in which no event comes."""
    return Request("clean up", lib.QV_CLEANUP, _nothing)


# ---- state ----


def network_status(interface: Interface) -> Request[int]:
    """The state of one kind of network interface, in the server's numbers."""
    return Request("network status", lib.QV_NETWORK_STATUS, _unsigned, int(interface))


def interfaces() -> Request[Interface]:
    """Which kinds of network interfaces are available."""
    return Request("interfaces", lib.QV_INTERFACES, lambda data: Interface(_unsigned(data) & 3))


def get_setting(key: int) -> Request[int]:
    """A setting of the server; keys are 0 to 4."""
    return Request("get setting", lib.QV_GET_SETTING, _unsigned, key)


def set_setting(key: int, value: int) -> Request[None]:
    """Changes a setting of the server."""
    return Request("set setting", lib.QV_SET_SETTING, _nothing, key, value)


def get_packet_data() -> Request[int]:
    """The packet-data state of the process's first connection."""
    return Request("get packet data", lib.QV_GET_PACKET_DATA, _unsigned)


def set_packet_data(state: int) -> Request[None]:
    """Switches packet data of the process's first connection; states are 1 to 3."""
    return Request("set packet data", lib.QV_SET_PACKET_DATA, _nothing, state)


def statistics() -> Request[Statistics]:
    """What has gone over connections."""
    return Request("statistics", lib.QV_STATISTICS, lambda data: Statistics(*struct.unpack("=6I", data)))


def reset_statistics(level: int = 0) -> Request[None]:
    """Resets statistics; levels are 0 to 4."""
    return Request("reset statistics", lib.QV_RESET_STATISTICS, _nothing, level)


def active_profiles() -> Request[list[int]]:
    """The ids of the profiles that are connected, whoever has connected them."""
    return Request("active profiles", lib.QV_ACTIVE_PROFILES, _ids)


def active_profile_names() -> Request[list[str]]:
    """The names of the profiles that are connected."""

    def read(data: bytes) -> list[str]:
        return [_text(piece) for piece in _pieces(data, 100)]

    return Request("active profile names", lib.QV_ACTIVE_NAMES, read)


def active_connections(interface: Interface) -> Request[list[ActiveConnection]]:
    """The connections of the device over one kind of network interface."""

    def read(data: bytes) -> list[ActiveConnection]:
        return [
            ActiveConnection(interface, _ids(piece[:4])[0], _text(piece[4:108]), piece[108:])
            for piece in _pieces(data, 176)
        ]

    return Request("active connections", lib.QV_ACTIVE_CONNECTIONS, read, int(interface))


# ---- tunnel data ----


def tunnel(data: bytes, *, parameter: int = 0, timeout: float | None = 60) -> Request[bytes]:
    """Sends data to the server, and gives its answer. With a server that goes away meanwhile there is none."""
    return Request("tunnel request", lib.QV_TUNNEL, lambda answer: answer, parameter, data=data, timeout=timeout)


def register_tunnel() -> Request[None]:
    """Has the server's own tunnel data come as events, to every client of the process."""
    return Request("register for tunnel data", lib.QV_TUNNEL_REGISTER, _nothing)


def deregister_tunnel() -> Request[None]:
    """Ends that."""
    return Request("deregister for tunnel data", lib.QV_TUNNEL_DEREGISTER, _nothing)


# ---- stored profiles ----


def _kind(interface: Interface) -> int:
    if interface not in (Interface.PACKET_DATA, Interface.WIFI, BOTH):
        raise ValueError(f"no kind of profile: {interface!r}")
    return {Interface.PACKET_DATA: 0, Interface.WIFI: 1}.get(interface, 2)


BOTH = Interface.PACKET_DATA | Interface.WIFI


def add_profile(profile: Profile) -> Request[int]:
    """Stores a new profile, and gives its id. The object that was given stays as it is."""
    data = _profiles.encode(profile)
    return Request("add a profile", lib.QV_ADD_PROFILE, _unsigned, data=data)


def change_profile(profile: Profile) -> Request[None]:
    """Replaces the stored profile that has the id of this one."""
    data = _profiles.encode(profile)
    return Request(f"change profile {profile.id}", lib.QV_CHANGE_PROFILE, _nothing, profile.id, data=data)


def delete_profile(profile_id: int) -> Request[None]:
    """Deletes a stored profile."""
    return Request(f"delete profile {profile_id}", lib.QV_DELETE_PROFILE, _nothing, profile_id)


def read_profile(profile_id: int) -> Request[Profile]:
    """A stored profile: a PacketDataProfile or a WifiProfile."""
    return Request(f"read profile {profile_id}", lib.QV_READ_PROFILE, _profiles.decode, profile_id)


def profile_status(profile_id: int) -> Request[int]:
    """The status of a stored profile, in the server's numbers."""
    return Request(f"status of profile {profile_id}", lib.QV_PROFILE_STATUS, _unsigned, profile_id)


def profile_attributes(profile_id: int) -> Request[int]:
    """The attributes of a stored profile, in the server's bits."""
    return Request(f"attributes of profile {profile_id}", lib.QV_PROFILE_ATTRIBUTES, _unsigned, profile_id)


def default_profile() -> Request[Profile]:
    """The default profile."""
    return Request("read the default profile", lib.QV_DEFAULT_PROFILE, _profiles.decode)


def default_profile_id() -> Request[int]:
    """The id of the default profile."""
    return Request("id of the default profile", lib.QV_DEFAULT_PROFILE_ID, _unsigned)


def set_default_profile(profile_id: int) -> Request[None]:
    """Makes a profile the default one of its kind."""
    return Request(f"make profile {profile_id} the default", lib.QV_SET_DEFAULT_PROFILE, _nothing, profile_id)


def profile_ids(interface: Interface = BOTH) -> Request[list[int]]:
    """The ids of the stored profiles, at most 20."""
    return Request("list profile ids", lib.QV_PROFILE_IDS, _ids, _kind(interface))


def list_profiles(interface: Interface = BOTH) -> Request[list[ProfileSummary]]:
    """The stored profiles with their names, at most 20."""

    def read(data: bytes) -> list[ProfileSummary]:
        entries = (record_of("NetPMPartialProfile", piece) for piece in _pieces(data, size))
        return [
            ProfileSummary(e.ProfileId, _type_of(e.ProfileType), text_of(e.ProfileName), text_of(e.NetworkName))
            for e in entries
        ]

    size = ffi.sizeof("NetPMPartialProfile")
    return Request("list profiles", lib.QV_PROFILE_LIST, read, _kind(interface))


def find_profiles(*, apn: str | None = None, essid: str | None = None) -> Request[list[int]]:
    """The ids of the profiles of an access point name, or of a Wi-Fi network's name."""
    if (apn is None) == (essid is None):
        raise TypeError("either an APN or an ESSID")
    key = _c_text(apn if essid is None else essid)
    return Request("find profiles", lib.QV_FIND_PROFILES, _ids, 0 if essid is None else 1, data=key)


def restore_profiles() -> Request[None]:
    """Puts the stored profiles back to what the device was delivered with."""
    return Request("restore profiles", lib.QV_RESTORE_PROFILES, _nothing)


def _c_text(text: str | None) -> bytes:
    encoded = (text or "").encode(errors="surrogateescape")
    if b"\0" in encoded:
        raise ValueError("a text holds a zero byte")
    return encoded


def id_of_name(name: str, profiles: list[ProfileSummary]) -> int:
    found = [profile.id for profile in profiles if profile.name == name]
    if not found:
        raise NameNotFoundError(f"there is no profile named {name!r}")
    if len(found) > 1:
        raise NameNotFoundError(f"several profiles are named {name!r}: {', '.join(map(str, found))}")
    return found[0]


# ---- which profile an application uses ----


def _application(data: bytes) -> Application:
    c = record_of("NetPMAppProf", data)
    first, second = (Interface(word & 3) for word in c.NetIfaceList)
    return Application(c.AppId, c.ProfileId, (first, second), c.Param)


def add_application(application_id: int) -> Request[bool]:
    """Whether the application has been added; False for a refusal and for every failure alike."""
    return Request("add an application", lib.QV_ADD_APPLICATION, _truth, application_id)


def delete_application(application_id: int) -> Request[bool]:
    """Whether the application has been deleted."""
    return Request("delete an application", lib.QV_DELETE_APPLICATION, _truth, application_id)


def knows_application(application_id: int) -> Request[bool]:
    """Whether the application is known."""
    return Request("check an application", lib.QV_CHECK_APPLICATION, _truth, application_id)


def read_application(application_id: int) -> Request[Application]:
    """What an application is bound to."""
    return Request("read an application", lib.QV_READ_APPLICATION, _application, application_id)


def change_application(application: Application) -> Request[Application]:
    """Binds an application, and gives the binding as it has been stored."""
    record = {
        "AppId": application.id,
        "Param": application.parameter,
        "ProfileId": application.profile_id,
        "NetIfaceList": [int(interface) for interface in application.interfaces],
    }
    data = bytes(ffi.buffer(ffi.new("NetPMAppProf *", record)))
    return Request("change an application", lib.QV_CHANGE_APPLICATION, _application, application.id, data=data)


def set_application_profile(application_id: int, profile_id: int) -> Request[None]:
    """Binds an application to a profile."""
    name = "set an application's profile"
    return Request(name, lib.QV_SET_APPLICATION_PROFILE, _nothing, application_id, profile_id)


def proper_profile(application_id: int) -> Request[int]:
    """The id of the profile that an application is to use now."""
    return Request("proper profile", lib.QV_PROPER_PROFILE, _unsigned, application_id)


def change_payment(csc: str, payment: str) -> Request[None]:
    """Changes the payment setting of the device: "VGR" or "VOD", and "PRE" or "POST"."""
    data = _c_text(csc) + b"\0" + _c_text(payment)
    return Request("change payment", lib.QV_CHANGE_PAYMENT, _nothing, data=data)


# ---- names ----

_NAME = re.compile(r"[a-z0-9][a-z0-9.-]*[a-z0-9.]", re.ASCII | re.IGNORECASE)


def _host(data: bytes) -> Host:
    head = ffi.sizeof("qv_host")
    c = record_of("qv_host", data)
    end = head + 4 * c.addresses
    addresses = tuple(IPv4Address(piece) for piece in _pieces(data[head:end], 4))
    name, *aliases = (text.decode(errors="surrogateescape") for text in data[end:].split(b"\0")[: c.names])
    return Host(name, addresses, tuple(aliases))


def resolve(profile_id: int, name: str) -> Request[Host]:
    """Resolves a host name over the connection of a profile, from the cache where it can."""

    def check_lookup(status: int, operation: str, reason: int | None) -> None:
        if status in (lib.QV_NOT_FOUND, lib.QV_LOOKUP_REFUSED):
            raise NameNotFoundError(f"{operation}: no name server of the connection knows it, or none answers")
        check(status, operation, reason)

    if not _NAME.fullmatch(name):
        raise ValueError(f"no host name: {name!r}")
    if profile_id <= 0:
        raise InvalidProfileError(Status.NETCM_ERR_INVALID_PROFILE, f"resolve {name}")
    return Request(f"resolve {name}", lib.QV_LOOK_UP, _host, profile_id, data=name.encode(), check=check_lookup)


