"""Host names, asked of a name server at 127.0.0.1."""

from __future__ import annotations

import asyncio
import os
import shutil
import subprocess
import unittest
from ipaddress import IPv4Address
from pathlib import Path

import quorvel
from quorvel import names
from support import ServerTest, until

DNSMASQ = shutil.which("dnsmasq", path=os.environ["PATH"] + ":/usr/sbin:/sbin")


class Names(ServerTest):
    dnsmasq: subprocess.Popen[bytes]

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        log = Path("/tmp/dnsmasq.log")
        command = f"{DNSMASQ} --no-daemon --conf-file=/dev/null --no-resolv --no-hosts --pid-file= --local-ttl=60"
        command += " --listen-address=127.0.0.1 --bind-interfaces --cname=www.example.com,host0.example.com"
        command += " --log-facility=/tmp/dnsmasq.log"
        hosts = [f"--host-record=host{i}.example.com,192.0.2.{i}" for i in range(40)]
        cls.dnsmasq = subprocess.Popen(command.split() + hosts, stderr=subprocess.DEVNULL)
        until(lambda: log.exists() and "started" in log.read_text())

    @classmethod
    def tearDownClass(cls) -> None:
        cls.dnsmasq.terminate()
        cls.dnsmasq.wait()
        super().tearDownClass()

    def setUp(self) -> None:
        super().setUp()
        names.clear_cache()

    def open(self) -> quorvel.Connection:
        """A simulated network has no interface that a query could leave over, and is given one."""
        client = quorvel.Client()
        self.addCleanup(client.close)
        connection = client.connect()
        self.server.ctl("ip-change", "--address", "127.0.0.1", "--dns", "127.0.0.1", "--interface", "lo")
        self.assertIsInstance(connection.next_event(30), quorvel.AddressChanged)
        self.assertEqual(connection.info.interface, "lo")
        return connection

    def test_are_resolved_over_a_connection(self) -> None:
        connection = self.open()
        host = connection.resolve("www.example.com")
        self.assertEqual(host, quorvel.Host("host0.example.com", (IPv4Address("192.0.2.0"),), ("www.example.com",)))
        self.assertEqual(connection.client.resolve(connection.profile_id, "localhost").addresses, (IPv4Address("127.0.0.1"),))
        with self.assertRaises(quorvel.NameNotFoundError):
            connection.resolve("nobody.example.com")
        with self.assertRaisesRegex(ValueError, "no host name: 'a b'"):
            connection.resolve("a b")
        with self.assertRaises(quorvel.InvalidProfileError):
            connection.client.resolve(0, "www.example.com")
        with self.assertRaises(quorvel.NameNotFoundError):
            connection.client.resolve(2, "www.example.com")

    def test_many_at_once_wait_for_their_turn(self) -> None:
        holding = self.open()

        async def main() -> None:
            async with quorvel.connect() as connection:
                hosts = await asyncio.gather(*(connection.resolve(f"host{i}.example.com") for i in range(40)))
                for i, host in enumerate(hosts):
                    self.assertEqual(host.addresses, (IPv4Address(f"192.0.2.{i}"),))
                with self.assertRaises(quorvel.NameNotFoundError):
                    await connection.resolve("nobody.example.com")

        asyncio.run(main())
        self.assertTrue(holding.is_open)

    def test_a_single_server_is_asked_without_a_client(self) -> None:
        self.assertEqual(names.query("host3.example.com", "127.0.0.1", "lo").addresses, (IPv4Address("192.0.2.3"),))
        self.assertEqual(names.reverse("192.0.2.3", "127.0.0.1").name, "host3.example.com")
        with self.assertRaises(quorvel.NameNotFoundError):
            names.query("nobody.example.com", "127.0.0.1")
        with self.assertRaisesRegex(quorvel.NameNotFoundError, "too long label"):
            names.query("a..b", "127.0.0.1")
        with self.assertRaises(ValueError):
            names.reverse("not an address", "127.0.0.1")


if __name__ == "__main__":
    unittest.main()
