"""Clients and connections for asyncio."""

from __future__ import annotations

import asyncio
import gc
import threading
import unittest
import warnings
from ipaddress import IPv4Address
from typing import Any

import quorvel
from support import ServerTest, until


class Async(ServerTest, unittest.IsolatedAsyncioTestCase):
    async def ctl(self, *arguments: str) -> str:
        return await asyncio.to_thread(self.server.ctl, *arguments)

    async def until_nobody_is_registered(self) -> None:
        await asyncio.to_thread(self.server.is_left_alone)

    async def until_no_call_is_left(self) -> None:
        await asyncio.to_thread(until, lambda: not self.server.list()["calls"])

    async def test_tells_what_happens_until_its_end(self) -> None:
        async with quorvel.connect("Internet") as connection:
            self.assertEqual(connection.info.address, IPv4Address("192.0.2.1"))
            await self.ctl("suspend")
            await self.ctl("ip-change", "--address", "192.0.2.7")
            await self.ctl("stop", "--reason", "no-address")
            events = [event async for event in connection]
            kinds = [quorvel.Suspended, quorvel.AddressChanged, quorvel.Stopped]
            self.assertEqual([type(event) for event in events], kinds)
            self.assertEqual(connection.info.address, IPv4Address("192.0.2.7"))
            with self.assertRaises(quorvel.NotActiveError):
                await connection.next_event()
        await self.until_nobody_is_registered()

    async def test_requests_go_on_beside_one_another(self) -> None:
        async with quorvel.AsyncClient() as client:
            answers = await asyncio.gather(*(client.tunnel(b"%d" % i) for i in range(20)))
            self.assertEqual(answers, [b"%d" % i for i in range(20)])
            async with client.connect() as first, client.connect("Home") as second:
                self.assertEqual(sorted(await client.active_profiles()), [first.profile_id, second.profile_id])
                with self.assertRaises(quorvel.AlreadyExistsError):
                    await client.connect(1)
            profile = await client.profiles.read(1)
            self.assertEqual(profile.name, "Internet")
            self.assertFalse(await client.applications.is_known(7))

    async def test_refusals(self) -> None:
        with self.assertRaises(quorvel.RefusedError) as caught:
            async with quorvel.connect("Refused"):
                pass
        self.assertEqual((caught.exception.status, caught.exception.reason), (21, 5))
        with self.assertRaises(quorvel.NameNotFoundError):
            async with quorvel.connect("Nowhere"):
                pass
        await self.until_nobody_is_registered()

    async def test_the_loop_goes_on_while_the_server_thinks(self) -> None:
        async with quorvel.AsyncClient() as client:
            await self.ctl("fault", "late", "300ms", "--event", "NETCM_CLIENT_GET_NETWORK_STATUS_RSP", "--times", "1")
            request = asyncio.create_task(client.network_status(quorvel.Interface.WIFI))
            turns = 0
            while not request.done():
                await asyncio.sleep(0.01)
                turns += 1
            self.assertGreater(turns, 2)

    async def test_a_cancelled_connect_leaves_nothing_behind(self) -> None:
        async def enter() -> None:
            async with quorvel.connect("Slow"):
                self.fail("this network takes an hour")

        # In the first turn of the task, while it registers, while it waits for the connection.
        for wait in (0.0, 0.005, 0.2):
            task = asyncio.create_task(enter())
            await asyncio.sleep(wait)
            task.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await task
            await self.until_nobody_is_registered()
        async with quorvel.AsyncClient() as client:
            with self.assertRaises(TimeoutError):
                async with asyncio.timeout(0.1):
                    await client.connect("Slow")
            await self.until_no_call_is_left()
            async with client.connect("Internet"):
                pass

    async def test_a_cancelled_request_is_done_without_its_task(self) -> None:
        async with quorvel.AsyncClient() as client:
            await self.ctl("fault", "late", "300ms", "--event", "NETCM_CLIENT_SET_SETTINGS_RSP", "--times", "1")
            task = asyncio.create_task(client.set_setting(1, 77))
            await asyncio.sleep(0.05)
            task.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await task
            self.assertEqual(await client.get_setting(1), 77)

    async def test_a_cancelled_block_closes_its_connection(self) -> None:
        async def hold() -> None:
            async with quorvel.connect() as connection:
                entered.set()
                async for _ in connection:
                    pass

        entered = asyncio.Event()
        task = asyncio.create_task(hold())
        await entered.wait()
        task.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await task
        await self.until_nobody_is_registered()

    async def test_listeners_run_on_the_loop_and_may_fail(self) -> None:
        seen: list[tuple[quorvel.Event, int]] = []
        failures: list[dict[str, Any]] = []

        def fail(event: quorvel.Event) -> None:
            raise RuntimeError("a handler of the application's")

        asyncio.get_running_loop().set_exception_handler(lambda loop, context: failures.append(context))
        async with quorvel.AsyncClient() as client:
            client.add_listener(fail)
            client.add_listener(lambda event: seen.append((event, threading.get_ident())))
            async with client.connect():
                await self.ctl("network-status", "--wifi", "ready")
            client.remove_listener(fail)
        kinds = [type(event) for event, _ in seen]
        self.assertEqual(kinds, [quorvel.Opened, quorvel.NetworkStatusChanged, quorvel.Closed])
        self.assertEqual({thread for _, thread in seen}, {threading.get_ident()})
        self.assertEqual([str(failure["exception"]) for failure in failures], ["a handler of the application's"] * 3)

    async def test_the_clients_events(self) -> None:
        async with quorvel.AsyncClient() as client:
            await client.register_tunnel()
            await self.ctl("tunnel", "news", "--id", "9")
            async for event in client:
                assert isinstance(event, quorvel.TunnelIndication)
                self.assertEqual((event.request_id, event.data), (9, b"news"))
                break
            closing = asyncio.create_task(client.close())
            self.assertEqual([event async for event in client], [])
            await closing
        with self.assertRaises(quorvel.NotRegisteredError):
            await client.next_event()

    async def test_the_server_goes_in_the_middle(self) -> None:
        async with quorvel.AsyncClient() as client:
            async with client.connect() as connection:
                self.server.kill()
                self.assertEqual([event async for event in connection], [quorvel.Stopped(1, 2)])
            self.server.start()
            async with client.connect() as connection:
                self.assertTrue(connection.is_open)

    async def test_what_is_forgotten_is_closed_and_warned_of(self) -> None:
        async with quorvel.AsyncClient() as client:
            with self.assertWarnsRegex(ResourceWarning, "unclosed <AsyncConnection of profile 1, open>"):
                await client.connect()
                gc.collect()
            await self.until_no_call_is_left()
        client = quorvel.AsyncClient()
        await client.start()
        with self.assertWarnsRegex(ResourceWarning, "unclosed <quorvel._aio.AsyncClient"):
            del client
            gc.collect()
        await self.until_nobody_is_registered()
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            quorvel.AsyncClient()

    async def test_another_loops_client_is_refused(self) -> None:
        async def ask(client: quorvel.AsyncClient) -> None:
            with self.assertRaisesRegex(RuntimeError, "another event loop's"):
                await client.statistics()

        async with quorvel.AsyncClient() as client:
            await asyncio.to_thread(lambda: asyncio.run(ask(client)))
            with self.assertRaisesRegex(RuntimeError, "started once"):
                await client.start()


class Loops(ServerTest):
    def test_several_loops_in_several_threads(self) -> None:
        results: list[int] = []

        async def main() -> None:
            async with quorvel.connect() as connection:
                everybody_is_there.wait()
                event = await connection.next_event()
                if isinstance(event, quorvel.Suspended):
                    results.append(threading.get_ident())

        everybody_is_there = threading.Barrier(6)
        threads = [threading.Thread(target=asyncio.run, args=(main(),)) for _ in range(5)]
        for thread in threads:
            thread.start()
        everybody_is_there.wait(30)
        self.server.ctl("suspend")
        for thread in threads:
            thread.join(30)
        self.assertEqual(len(set(results)), 5)

    def test_a_loop_that_is_closed_while_events_come(self) -> None:
        loop = asyncio.new_event_loop()
        client = quorvel.AsyncClient()
        loop.run_until_complete(client.start())
        connection = loop.run_until_complete(client.connect()._opening)
        loop.close()
        self.server.ctl("suspend")
        self.server.ctl("resume")
        with self.assertWarns(ResourceWarning):
            del client, connection
            gc.collect()
        self.server.is_left_alone()


if __name__ == "__main__":
    unittest.main()
