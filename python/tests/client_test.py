"""Clients and connections for those who wait."""

from __future__ import annotations

import gc
import os
import signal
import threading
import time
import unittest
import warnings
from ipaddress import IPv4Address

import quorvel
from quorvel import _native
from support import ServerTest, until

WIFI = quorvel.Interface.WIFI
PACKET_DATA = quorvel.Interface.PACKET_DATA


class Connections(ServerTest):
    def test_by_name_by_id_and_by_default_it_is_the_same(self) -> None:
        profiles: tuple[int | str | None, ...] = ("Internet", 1, None)
        for profile in profiles:
            with quorvel.connect(profile) as connection:
                self.assertEqual(connection.profile_id, 1)
                self.assertEqual(connection.info.address, IPv4Address("192.0.2.1"))
                self.assertEqual(connection.info.dns_servers, (IPv4Address("127.0.0.1"),))
                self.assertTrue(connection.is_open)
            self.assertFalse(connection.is_open)
            self.assertEqual(connection.end, quorvel.Closed(1))
        self.server.is_left_alone()

    def test_tells_what_happens_until_its_end(self) -> None:
        with quorvel.connect() as connection:
            self.server.ctl("suspend")
            self.server.ctl("resume")
            self.server.ctl("ip-change", "--address", "192.0.2.7")
            self.server.ctl("stop", "--reason", "no-address")
            events = list(connection)
        kinds = [quorvel.Suspended, quorvel.Resumed, quorvel.AddressChanged, quorvel.Stopped]
        self.assertEqual([type(event) for event in events], kinds)
        self.assertEqual(events[-1], quorvel.Stopped(1, 21, 3))
        self.assertEqual(connection.info.address, IPv4Address("192.0.2.7"))
        with self.assertRaises(quorvel.NotActiveError):
            connection.next_event()

    def test_a_refusal_has_status_and_reason(self) -> None:
        with self.assertRaises(quorvel.RefusedError) as caught:
            quorvel.connect("Refused").__enter__()
        self.assertEqual((caught.exception.status, caught.exception.reason), (21, 5))
        self.server.is_left_alone()

    def test_unknown_profiles(self) -> None:
        with quorvel.Client() as client:
            with self.assertRaisesRegex(quorvel.NameNotFoundError, "no profile named 'Nowhere'"):
                client.connect("Nowhere")
            with self.assertRaises(quorvel.InvalidProfileError) as caught:
                client.connect(77)
            self.assertEqual(caught.exception.name, "NETCM_ERR_INVALID_PROFILE")
            self.assertIn("NETCM_ERR_INVALID_PROFILE (7)", str(caught.exception))
            with self.assertRaises(quorvel.InvalidProfileError):
                client.connect(-1)

    def test_a_client_has_each_profile_once_and_several_clients_share_it(self) -> None:
        with quorvel.Client() as client, quorvel.Client() as other:
            with client.connect() as first, other.connect(1) as second:
                for again in (None, 1):
                    with self.assertRaises(quorvel.AlreadyExistsError):
                        client.connect(again)
                self.assertEqual(first.info, second.info)
                first.close()
                self.server.ctl("suspend")
                self.assertEqual(second.next_event(30), quorvel.Suspended(1))
            with client.connect() as again_open:
                self.assertTrue(again_open.is_open)

    def test_two_connections_of_a_client_get_each_its_own_events(self) -> None:
        with quorvel.Client() as client, client.connect() as internet, client.connect("Home") as home:
            self.server.ctl("suspend", "--profile", str(home.profile_id))
            self.assertEqual(home.next_event(30), quorvel.Suspended(home.profile_id))
            self.server.ctl("stop", "--profile", "1")
            self.assertIsInstance(internet.next_event(30), quorvel.Stopped)
            with self.assertRaises(TimeoutError):
                home.next_event(0)

    def test_a_wait_that_ends_early_leaves_no_connection_behind(self) -> None:
        with quorvel.Client() as client:
            with self.assertRaises(TimeoutError):
                client.connect("Slow", timeout=0.1)
            until(lambda: not self.server.list()["calls"])
            handler = signal.signal(signal.SIGALRM, signal.default_int_handler)
            try:
                signal.setitimer(signal.ITIMER_REAL, 0.1)
                with self.assertRaises(KeyboardInterrupt):
                    client.connect("Slow")
            finally:
                signal.signal(signal.SIGALRM, handler)
            until(lambda: not self.server.list()["calls"])
            client.connect(1).close()

    def test_a_kill_ends_everybodys_connection(self) -> None:
        with quorvel.Client() as client, quorvel.connect() as connection:
            client.kill(1)
            self.assertEqual(list(connection), [quorvel.Stopped(1, 22)])
            with self.assertRaises(quorvel.NotActiveError):
                client.kill(1)

    def test_an_answer_that_does_not_come_in_time(self) -> None:
        with quorvel.Client() as client:
            self.server.ctl("fault", "late", "500ms", "--event", "NETCM_CLIENT_TUNNEL_RSP", "--times", "2")
            with self.assertRaisesRegex(TimeoutError, "tunnel request: no answer within 0.1 s"):
                client.tunnel(b"x", timeout=0.1)

    def test_a_closed_client_says_so(self) -> None:
        client = quorvel.Client()
        connection = client.connect()
        client.close()
        client.close()
        with self.assertRaises(quorvel.NotRegisteredError):
            client.statistics()
        self.assertEqual(list(connection), [quorvel.Closed(1)])
        connection.close()
        self.assertEqual(list(client), [])

    def test_there_are_sixteen_clients(self) -> None:
        clients = [quorvel.Client() for _ in range(16)]
        with self.assertRaises(quorvel.LimitError) as caught:
            quorvel.Client()
        self.assertEqual(caught.exception.status, quorvel.Status.NETCM_ERR_NO_FREE_ENTRY)
        connections = [client.connect() for client in clients]
        self.server.ctl("suspend")
        for connection in connections:
            self.assertEqual(connection.next_event(30), quorvel.Suspended(1))
        for client in clients:
            client.close()
        with quorvel.Client():
            pass

    def test_many_threads_use_one_client(self) -> None:
        wrong: list[bytes] = []

        def work(number: int) -> None:
            for count in range(20):
                data = b"%d %d" % (number, count)
                if client.tunnel(data) != data:
                    wrong.append(data)

        with quorvel.Client() as client:
            threads = [threading.Thread(target=work, args=(number,)) for number in range(8)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(wrong, [])

    def test_a_close_wakes_who_waits(self) -> None:
        with quorvel.connect() as connection:
            seen: list[quorvel.Event] = []
            thread = threading.Thread(target=lambda: seen.extend(connection))
            thread.start()
            connection.close()
            thread.join(30)
        self.assertFalse(thread.is_alive())
        self.assertIn(seen, ([], [quorvel.Closed(1)]))

    def test_what_is_forgotten_is_closed_and_warned_of(self) -> None:
        with quorvel.Client() as client:
            with self.assertWarnsRegex(ResourceWarning, "unclosed <Connection of profile 1, open>"):
                client.connect()
                gc.collect()
            until(lambda: not self.server.list()["calls"])
        with self.assertWarnsRegex(ResourceWarning, "unclosed <quorvel._client.Client"):
            quorvel.Client()
            gc.collect()
        self.server.is_left_alone()
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            quorvel.connect()

    def test_a_flood_that_nobody_reads_has_a_bound(self) -> None:
        with quorvel.Client() as client, quorvel.connect() as connection:
            client.register_tunnel()
            with open("/tmp/flood.toml", "w") as file:
                file.write('[[step]]\nat = "0s"\ncommand = "tunnel"\nhex = "00"\n' * 4100)
            self.server.ctl("run", "/tmp/flood.toml")
            self.server.ctl("suspend")
            self.assertEqual(connection.next_event(30), quorvel.Suspended(1))
            events: list[quorvel.Event] = []
            while not events or not isinstance(events[-1], quorvel.EventsLost):
                events.append(client.next_event(30))
        self.assertEqual(events[-1], quorvel.EventsLost(-1, count=4))
        self.assertEqual(len(events), 4097)


class Requests(ServerTest):
    def test_state_and_settings(self) -> None:
        with quorvel.connect() as connection:
            client = connection.client
            self.assertIn(client.network_status(PACKET_DATA), range(4))
            self.assertIsInstance(client.interfaces(), quorvel.Interface)
            client.set_setting(3, 4711)
            self.assertEqual(client.get_setting(3), 4711)
            with self.assertRaises(quorvel.InvalidParameterError):
                client.get_setting(5)
            with self.assertRaises(OverflowError):
                client.set_setting(3, 1 << 32)
            self.assertEqual(client.get_packet_data(), 1)
            client.set_packet_data(2)
            self.assertEqual(client.get_packet_data(), 2)
            client.reset_statistics()
            self.assertEqual(client.statistics(), quorvel.Statistics(0, 0, 0, 0, 0, 0))
            self.assertEqual(client.active_profiles(), [1])
            self.assertEqual(client.active_profile_names(), ["Internet"])
            (active,) = client.active_connections(PACKET_DATA)
            self.assertEqual((active.profile_id, active.network_name), (1, "internet.example"))
            self.assertEqual(client.active_connections(WIFI), [])

    def test_nothing_is_active(self) -> None:
        with quorvel.Client() as client:
            self.assertEqual((client.active_profiles(), client.active_profile_names()), ([], []))
            client.clean_up()
            with self.assertRaises(quorvel.NotRegisteredError):
                client.get_packet_data()

    def test_tunnel_and_network_status_come_to_the_client(self) -> None:
        with quorvel.Client() as client:
            self.assertEqual(client.tunnel(b"hello\0you", parameter=7), b"hello\0you")
            self.assertEqual(client.tunnel(b""), b"")
            client.register_tunnel()
            self.server.ctl("tunnel", "good news", "--id", "9")
            event = client.next_event(30)
            assert isinstance(event, quorvel.TunnelIndication)
            self.assertEqual((event.request_id, event.data), (9, b"good news"))
            client.deregister_tunnel()
            self.server.ctl("network-status", "--wifi", "ready", "--packet-data", "down")
            self.assertEqual(client.next_event(30), quorvel.NetworkStatusChanged(-1, packet_data=1, wifi=3))
            with self.assertRaises(TimeoutError):
                client.next_event(0)

    def test_applications(self) -> None:
        with quorvel.Client() as client:
            apps = client.applications
            self.assertEqual([apps.add(7), apps.add(7), apps.is_known(7), apps.is_known(8)], [True, False, True, False])
            apps.set_profile(7, 2)
            self.assertEqual(apps.read(7).profile_id, 2)
            changed = quorvel.Application(7, 1, (PACKET_DATA, WIFI), 5)
            self.assertEqual(apps.change(changed), changed)
            self.assertEqual(apps.read(7), changed)
            self.assertEqual(apps.proper_profile(7), 1)
            self.assertTrue(apps.delete(7))
            with self.assertRaises(quorvel.RefusedError):
                apps.read(7)
            client.change_payment("VGR", "POST")
            with self.assertRaises(quorvel.InvalidParameterError):
                client.change_payment("VGR", "NEVER")

    def test_the_status_codes_are_the_librarys(self) -> None:
        for status in quorvel.Status:
            self.assertEqual(getattr(_native.lib, status.name), status.value)
        names = {name for name in dir(_native.lib) if name.startswith("NETCM_ERR_") or name == "NETCM_SUCCESS"}
        self.assertEqual(names, set(quorvel.Status.__members__))
        self.assertEqual(int(PACKET_DATA), _native.lib.NETCM_IFACE_PDP)
        self.assertEqual(int(WIFI), _native.lib.NETCM_IFACE_WIFI)


class ServerThatGoes(ServerTest):
    def test_ends_its_connections_and_the_next_request_finds_the_new_one(self) -> None:
        with quorvel.Client() as client:
            with client.connect() as connection:
                self.server.kill()
                self.assertEqual(list(connection), [quorvel.Stopped(1, 2)])
            self.server.start()
            with client.connect() as connection:
                self.assertEqual(connection.profile_id, 1)

    def test_without_one_there_is_a_link_error(self) -> None:
        self.server.stop()
        start = time.monotonic()
        with self.assertRaises(quorvel.LinkError) as caught:
            quorvel.Client()
        self.assertEqual(caught.exception.status, 4)
        self.assertGreater(time.monotonic() - start, 1)
        self.assertLess(len(os.listdir("/proc/self/fd")), 30)
        self.server.start()


if __name__ == "__main__":
    unittest.main()
