"""Stored profiles with named fields."""

from __future__ import annotations

import dataclasses
import re
import sys
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Any, Callable, TypeVar

from ._native import ffi, lib
from ._records import NO_ADDRESS, record_of, text_of

NONE = NO_ADDRESS
SIZE: int = ffi.sizeof("NetPMProfile")

# What a field of a record holds: how it is read from its place there, and how it is written to it. A place is the
# structure around it and its name or index in that.
_Get = Callable[[Any], Any]
_Set = Callable[[Any, Any, Any, str], None]


def _get_text(value: Any) -> str:
    return text_of(value)


def _set_text(around: Any, key: Any, value: Any, name: str) -> None:
    place = _at(around, key)
    encoded = value.encode(errors="surrogateescape")
    room = len(place) - 1
    if len(encoded) > room:
        raise ValueError(f"{name} has {len(encoded)} bytes, and there is room for {room}")
    if b"\0" in encoded:
        raise ValueError(f"{name} holds a zero byte")
    ffi.memmove(place, encoded.ljust(room + 1, b"\0"), room + 1)


def _set_proxy(around: Any, key: Any, value: Any, name: str) -> None:
    if value and not re.fullmatch(r"\d+\.\d+\.\d+\.\d+(:\d+)?", value, re.ASCII):
        raise ValueError(f"{name} is no dotted address, colon and port: {value!r}")
    _set_text(around, key, value, name)


def _get_address(value: Any) -> IPv4Address:
    return IPv4Address(value.Ipv4.to_bytes(4, sys.byteorder))


def _set_address(around: Any, key: Any, value: Any, name: str) -> None:
    _at(around, key).Ipv4 = int.from_bytes(IPv4Address(value).packed, sys.byteorder)


def _set_number(around: Any, key: Any, value: Any, name: str) -> None:
    try:
        setattr(around, key, value)
    except OverflowError:
        raise ValueError(f"{name} is out of range: {value}") from None


def _at(around: Any, key: Any) -> Any:
    return around[key] if isinstance(key, int) else getattr(around, key)


_T = TypeVar("_T")


def _field(path: str, default: _T, get: _Get, put: _Set, form: str = "", secret: bool = False) -> _T:
    """A field of the record; `form` is the security form that has it."""
    metadata = {"path": path.split("."), "get": get, "put": put, "form": form}
    value: _T = dataclasses.field(default=default, repr=not secret, metadata=metadata)
    return value


def _text(path: str, form: str = "", secret: bool = False) -> str:
    return _field(path, "", _get_text, _set_text, form, secret)


def _number(path: str, form: str = "", default: int = 0) -> int:
    return _field(path, default, int, _set_number, form)


def _flag(path: str) -> bool:
    return _field(path, False, bool, _set_number)


def _address(path: str) -> IPv4Address:
    return _field(path, NONE, _get_address, _set_address)


def _addresses(path: str) -> tuple[IPv4Address, ...]:
    """Places at the end that are not set do not count."""

    def get(value: Any) -> tuple[IPv4Address, ...]:
        return _without_end([_get_address(value[i]) for i in range(len(value))], NONE)

    return _field(path, (), get, _each(_set_address, NONE))


def _secrets(path: str, form: str) -> tuple[str, ...]:
    def get(value: Any) -> tuple[str, ...]:
        return _without_end([text_of(value[i]) for i in range(len(value))], "")

    return _field(path, (), get, _each(_set_text, ""), form, secret=True)


def _without_end(values: list[_T], unset: _T) -> tuple[_T, ...]:
    while values and values[-1] == unset:
        values.pop()
    return tuple(values)


def _each(put: _Set, unset: Any) -> _Set:
    def put_all(around: Any, key: Any, value: Any, name: str) -> None:
        places = _at(around, key)
        if len(value) > len(places):
            raise ValueError(f"{name} has {len(value)} values, and there is room for {len(places)}")
        for index in range(len(places)):
            put(places, index, value[index] if index < len(value) else unset, name)

    return put_all


@dataclass(kw_only=True)
class Profile:
    """What every profile has. The id is 0 until the profile is stored.

    What a record holds beside its named fields is kept when a profile is read, changed and written back.
    """

    id: int = 0
    name: str = _text("ProfileName")
    attributes: int = _number("ProfileAttr")
    proxy: str = _field("ProxyAddr", "", _get_text, _set_proxy)
    _record: bytes = dataclasses.field(default=bytes(SIZE), repr=False, compare=False)


@dataclass(kw_only=True)
class PacketDataProfile(Profile):
    """A packet-data profile. Numbers whose meaning is not told are the server's."""

    apn: str = _text("PdpProfInfo.Apn")
    primary_profile: bool = _flag("PdpProfInfo.BPrimaryPdpProfile")
    primary_profile_id: int = _number("PdpProfInfo.PrimaryPdpProfileId")
    protocol_type: int = _number("PdpProfInfo.ProtocolType")
    address_type: int = _number("PdpProfInfo.AddrType")
    static_address: bool = _flag("PdpProfInfo.BStaticIpAddr")
    address: IPv4Address = _address("PdpProfInfo.IpAddr")
    static_dns: bool = _flag("PdpProfInfo.BStaticDnsAddr")
    dns: tuple[IPv4Address, ...] = _addresses("PdpProfInfo.DnsAddr")
    qos_type: int = _number("PdpProfInfo.QosInfo.QosType")
    traffic_class: int = _number("PdpProfInfo.QosInfo.Qos.QosUmts.TrafficClass")
    auth_type: int = _number("PdpProfInfo.AuthInfo.AuthType")
    user_name: str = _text("PdpProfInfo.AuthInfo.UserName")
    password: str = _text("PdpProfInfo.AuthInfo.Password", secret=True)
    gateway: IPv4Address = _address("PdpProfInfo.DefGateway")
    net_mask: IPv4Address = _address("PdpProfInfo.NetMask")
    home_url: str = _text("PdpProfInfo.HomeURL")
    secure_connection: bool = _flag("PdpProfInfo.BSecureConnection")
    app_protocol: int = _number("PdpProfInfo.AppProtoType", default=1)
    linger_time: int = _number("PdpProfInfo.lingerTime")


@dataclass(kw_only=True)
class WifiProfile(Profile):
    """A Wi-Fi profile. The security mode says which keys it has: 1 none, 2 and 3 `wep_keys`, 4, 6 and 8 `psk`, 5, 7 and
    9 the fields that begin with `eap`."""

    essid: str = _text("WlanProfInfo.essid")
    bssid: str = _text("WlanProfInfo.bssid")
    frequency: int = _number("WlanProfInfo.freq")
    rate: int = _number("WlanProfInfo.rate")
    standard: int = _number("WlanProfInfo.standard")
    mode: int = _number("WlanProfInfo.wlan_mode")
    security_mode: int = _number("WlanProfInfo.security.sec_mode", default=1)
    encryption_mode: int = _number("WlanProfInfo.security.encrypt_mode")
    wep_keys: tuple[str, ...] = _secrets("WlanProfInfo.security.form.wep.wepKey", "wep")
    wep_key_index: int = _number("WlanProfInfo.security.form.wep.wepKeyIndex", "wep")
    psk: str = _text("WlanProfInfo.security.form.psk.pskKey", "psk", secret=True)
    eap_user_name: str = _text("WlanProfInfo.security.form.eap.username", "eap")
    eap_password: str = _text("WlanProfInfo.security.form.eap.password", "eap", secret=True)
    eap_ca_certificate: str = _text("WlanProfInfo.security.form.eap.ca_cert_filename", "eap")
    eap_client_certificate: str = _text("WlanProfInfo.security.form.eap.client_cert_filename", "eap")
    eap_private_key: str = _text("WlanProfInfo.security.form.eap.private_key_filename", "eap")
    eap_key_password: str = _text("WlanProfInfo.security.form.eap.private_key_passwd", "eap", secret=True)
    eap_type: int = _number("WlanProfInfo.security.form.eap.wlan_eap_type", "eap")
    address_type: int = _number("WlanProfInfo.net_info.addr_type")
    ip_config_type: int = _number("WlanProfInfo.net_info.IpConfigType")
    address: IPv4Address = _address("WlanProfInfo.net_info.ip_addr")
    gateway: IPv4Address = _address("WlanProfInfo.net_info.def_gateway")
    net_mask: IPv4Address = _address("WlanProfInfo.net_info.net_mask")
    dns_config_type: int = _number("WlanProfInfo.net_info.DnsConfigType")
    dns: tuple[IPv4Address, ...] = _addresses("WlanProfInfo.net_info.dns_addr")
    interface: str = _text("WlanProfInfo.net_info.ifname")


_FORMS = {2: "wep", 3: "wep", 4: "psk", 6: "psk", 8: "psk", 5: "eap", 7: "eap", 9: "eap"}


def _mode_in(c: Any) -> int:
    mode: int = c.WlanProfInfo.security.sec_mode if c.ProfileType == lib.NETPM_PROFILE_WLAN else 0
    return mode


def _places(c: Any, kind: type[Profile], form: str) -> Any:
    """The fields that the record has, each with the structure around it."""
    for field in dataclasses.fields(kind):
        if "path" not in field.metadata or field.metadata["form"] not in ("", form):
            continue
        around = c
        for name in field.metadata["path"][:-1]:
            around = getattr(around, name)
        yield field, around, field.metadata["path"][-1]


def decode(data: bytes) -> Profile:
    c = record_of("NetPMProfile", data)
    kind: type[Profile] = WifiProfile if c.ProfileType == lib.NETPM_PROFILE_WLAN else PacketDataProfile
    form = _FORMS.get(_mode_in(c), "none")
    values = {field.name: field.metadata["get"](_at(around, key)) for field, around, key in _places(c, kind, form)}
    return kind(id=c.ProfileId, _record=bytes(data), **values)


def encode(profile: Profile) -> bytes:
    record = bytearray(profile._record)
    c = record_of("NetPMProfile", record)
    wifi = isinstance(profile, WifiProfile)
    kind = lib.NETPM_PROFILE_WLAN if wifi else lib.NETPM_PROFILE_PDP
    form = _FORMS.get(profile.security_mode, "none") if isinstance(profile, WifiProfile) else "none"
    if wifi and _FORMS.get(_mode_in(c), "none") != form:
        # What another form has left there means nothing in this one.
        ffi.memmove(c.WlanProfInfo.security.form.Opaque, bytes(312), 312)
    _refuse_what_has_no_place(profile, form)
    c.ProfileId = profile.id
    c.ProfileType = kind
    for field, around, key in _places(c, type(profile), form):
        field.metadata["put"](around, key, getattr(profile, field.name), field.name)
    return bytes(record)


def _refuse_what_has_no_place(profile: Profile, form: str) -> None:
    for field in dataclasses.fields(profile):
        belongs_to = field.metadata.get("form", "")
        if belongs_to in ("", form) or getattr(profile, field.name) == field.default:
            continue
        mode = getattr(profile, "security_mode", None)
        raise ValueError(f"{field.name} does not belong to a profile with security mode {mode}")
