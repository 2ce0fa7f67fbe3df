"""Stored profiles."""

from __future__ import annotations

import dataclasses
import unittest
from ipaddress import IPv4Address

import quorvel
from quorvel import PacketDataProfile, Profile, WifiProfile
from support import ServerTest

WIFI = quorvel.Interface.WIFI
PACKET_DATA = quorvel.Interface.PACKET_DATA


def different(kind: type[Profile], **given: object) -> Profile:
    """A profile in which no field is as it was."""
    values: dict[str, object] = {}
    for number, field in enumerate(dataclasses.fields(kind)):
        if field.metadata.get("form", "-") != "":
            continue
        values[field.name] = {
            str: f"v{number}",
            int: number + 100,
            bool: True,
            IPv4Address: IPv4Address(number),
            tuple: (IPv4Address(number), IPv4Address(number + 1)),
        }[type(field.default)]
    values |= {"proxy": "10.0.0.1:80", "bssid": "v7", "app_protocol": 4}
    names = {field.name for field in dataclasses.fields(kind)}
    return kind(**{name: value for name, value in (values | given).items() if name in names})  # type: ignore[arg-type]


class Profiles(ServerTest):
    def setUp(self) -> None:
        super().setUp()
        self.client = quorvel.Client()
        self.profiles = self.client.profiles
        self.profiles.restore()
        self.addCleanup(self.client.close)

    def stored(self, profile: Profile) -> Profile:
        return self.profiles.read(self.profiles.add(profile))

    def test_every_field_comes_back(self) -> None:
        for profile in (
            different(PacketDataProfile),
            different(WifiProfile, security_mode=1),
            different(WifiProfile, security_mode=3, wep_keys=("a", "", "c"), wep_key_index=2),
            different(WifiProfile, security_mode=8, psk="a passphrase"),
            different(WifiProfile, security_mode=9, eap_user_name="u", eap_password="p", eap_ca_certificate="ca",
                      eap_client_certificate="c", eap_private_key="k", eap_key_password="kp", eap_type=2),
        ):
            stored = self.stored(profile)
            profile.id = stored.id
            self.assertEqual(stored, profile)

    def test_changed_fields_and_what_has_no_name(self) -> None:
        profile = self.profiles.read(1)
        assert isinstance(profile, PacketDataProfile)
        profile.apn, profile.dns = "other.example", (IPv4Address("10.0.0.1"),)
        self.profiles.change(profile)
        self.assertEqual(self.profiles.read(1), profile)
        record = bytearray(profile._record)
        record[0] = 77
        self.profiles.change(dataclasses.replace(profile, _record=bytes(record)))
        again = self.profiles.read(1)
        again.name = "Another"
        self.profiles.change(again)
        self.assertEqual((self.profiles.read(1).name, self.profiles.read(1)._record[0]), ("Another", 77))

    def test_a_changed_security_mode_takes_the_old_keys_along(self) -> None:
        profile = self.stored(WifiProfile(name="W", essid="w", security_mode=4, psk="a passphrase"))
        assert isinstance(profile, WifiProfile)
        profile.security_mode, profile.psk, profile.wep_keys = 2, "", ("",)
        self.profiles.change(profile)
        changed = self.profiles.read(profile.id)
        self.assertNotIn(b"passphrase", changed._record)

    def test_what_does_not_fit_is_said_by_name(self) -> None:
        for wrong, text in (
            (PacketDataProfile(name="a name that is much too long"), "name has 28 bytes, and there is room for 27"),
            (PacketDataProfile(name="a\0b"), "name holds a zero byte"),
            (PacketDataProfile(name="a", proxy="proxy.example:80"), "proxy is no dotted address"),
            (PacketDataProfile(name="a", linger_time=1 << 31), "linger_time is out of range"),
            (PacketDataProfile(name="a", dns=(IPv4Address(1),) * 3), "dns has 3 values, and there is room for 2"),
            (WifiProfile(name="a", essid="b", psk="c"), "psk does not belong to a profile with security mode 1"),
        ):
            with self.subTest(text), self.assertRaisesRegex(ValueError, text):
                self.profiles.add(wrong)

    def test_refusals_are_the_servers(self) -> None:
        with self.assertRaises(quorvel.RefusedError) as caught:
            self.profiles.read(99)
        self.assertEqual((caught.exception.status, caught.exception.name), (103, "status 103"))
        with self.assertRaises(quorvel.InvalidParameterError):
            self.profiles.read(0)
        with self.assertRaises(quorvel.InvalidParameterError):
            self.profiles.add(PacketDataProfile(name="a", app_protocol=3))

    def test_secrets_are_not_shown(self) -> None:
        text = repr(PacketDataProfile(password="s3cret")) + repr(WifiProfile(psk="s3cret", wep_keys=("s3cret",)))
        self.assertNotIn("s3cret", text)

    def test_lists_defaults_and_attributes(self) -> None:
        self.assertEqual(self.profiles.ids(), [1, 2, 3, 4])
        self.assertEqual(self.profiles.ids(WIFI), [4])
        self.assertEqual([p.name for p in self.profiles.list(PACKET_DATA)], ["Internet", "Slow", "Refused"])
        self.assertEqual(self.profiles.list(WIFI), [quorvel.ProfileSummary(4, WIFI, "Home", "home")])
        self.assertEqual(self.profiles.find(apn="slow.example"), [2])
        self.assertEqual(self.profiles.find(essid="home"), [4])
        self.assertEqual(self.profiles.find(apn="nowhere"), [])
        self.assertEqual(self.profiles.default_id(), 1)
        self.profiles.set_default(2)
        self.assertEqual((self.profiles.default_id(), self.profiles.default().name), (2, "Slow"))
        self.assertEqual(self.profiles.status(2), 0)
        profile = self.profiles.read(2)
        profile.attributes = 0x80000001
        self.profiles.change(profile)
        self.assertEqual(self.profiles.attributes(2), 0x80000001)
        self.profiles.delete(2)
        self.assertEqual(self.profiles.ids(), [1, 3, 4])

    def test_twins_are_not_opened_by_name(self) -> None:
        self.profiles.add(PacketDataProfile(name="Internet", apn="x"))
        with self.assertRaisesRegex(quorvel.NameNotFoundError, "several profiles are named 'Internet'"):
            self.client.connect("Internet")


if __name__ == "__main__":
    unittest.main()
