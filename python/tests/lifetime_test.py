"""Interpreters that end in any order, and children of forks."""

from __future__ import annotations

import pickle
import unittest

import quorvel
from support import ServerTest

THREADS_THAT_WAIT = """
    import quorvel, threading
    connection = quorvel.Client().connect()
    threading.Thread(target=lambda: list(connection), daemon=True).start()
    threading.Thread(target=lambda: list(connection.client), daemon=True).start()
"""


class Ends(ServerTest):
    def tearDown(self) -> None:
        self.server.is_left_alone()

    def test_with_a_connection_that_is_open(self) -> None:
        self.run_program(
            """
            import os, quorvel
            connection = quorvel.Client().connect()
            print(connection.info.address, flush=True)
            os._exit(0)
            """
        )

    def test_in_any_order_with_daemon_threads_that_wait(self) -> None:
        ends = (
            "import sys; sys.exit(0)",
            "import atexit; atexit.register(connection.client.statistics)",
            "import os; os._exit(0)",
            "connection.client.close()",
            "del connection",
        )
        for end in ends:
            with self.subTest(end):
                self.run_program(THREADS_THAT_WAIT + "    " + end, closes=False)

    def test_while_events_and_answers_come(self) -> None:
        self.run_program(
            """
            import quorvel, subprocess, threading
            client = quorvel.Client()
            def ask():
                while True:
                    client.tunnel(bytes(1000))
            for _ in range(4):
                threading.Thread(target=ask, daemon=True).start()
            client.tunnel(b"x")
            """,
            closes=False,
        )

    def test_in_the_middle_of_a_task(self) -> None:
        self.run_program(
            """
            import asyncio, quorvel, sys
            async def hold():
                async with quorvel.connect():
                    await asyncio.sleep(3600)
            async def main():
                task = asyncio.create_task(hold())
                await asyncio.sleep(0.1)
                asyncio.get_running_loop().call_soon(sys.exit, 0)
                await task
            asyncio.run(main())
            """,
            closes=False,
        )

    def test_with_a_loop_that_is_never_closed(self) -> None:
        self.run_program(
            """
            import asyncio, quorvel
            loop = asyncio.new_event_loop()
            client = quorvel.AsyncClient()
            loop.run_until_complete(client.start())
            """,
            closes=False,
        )


class Forks(ServerTest):
    def test_a_child_has_no_clients_and_may_make_its_own(self) -> None:
        printed = self.run_program(
            """
            import os, quorvel
            with quorvel.connect() as connection:
                child = os.fork()
                if child == 0:
                    for ask in (connection.client.statistics, connection.next_event, connection.client.next_event):
                        try:
                            ask()
                        except quorvel.NotRegisteredError as error:
                            print(error.name, flush=True)
                    connection.close()
                    connection.client.close()
                    with quorvel.connect() as own:
                        print(own.profile_id, own.is_open, flush=True)
                    del own, connection
                    os._exit(0)
                os.waitpid(child, 0)
                print(connection.is_open, connection.client.tunnel(b"still there"))
            """
        )
        self.assertEqual(printed.split("\n")[:5], ["NETCM_ERR_NOT_REGISTERED"] * 3 + ["1 True", "True b'still there'"])
        self.server.is_left_alone()

    def test_a_child_of_a_loop_hurts_nobody(self) -> None:
        self.run_program(
            """
            import asyncio, gc, os, quorvel, subprocess, sys
            async def main():
                async with quorvel.connect() as connection:
                    child = os.fork()
                    if child == 0:
                        client = connection.client
                        try:
                            client._number and await client.statistics()
                        except quorvel.NotRegisteredError:
                            connection.leave()
                            client.leave()
                            del client, connection
                            gc.collect()
                            os._exit(0)
                        os._exit(1)
                    assert os.waitpid(child, 0)[1] == 0
                    assert await connection.client.tunnel(b"x") == b"x"
            asyncio.run(main())
            """
        )
        self.server.is_left_alone()

    def test_children_of_every_start_method(self) -> None:
        program = """
            import multiprocessing, quorvel
            def work(number):
                with quorvel.connect() as connection:
                    return connection.client.tunnel(b"%d" % number)
            def main(method):
                context = multiprocessing.get_context(method)
                if method == "forkserver":
                    context.set_forkserver_preload(["quorvel"])
                with quorvel.connect() as connection, context.Pool(2) as pool:
                    assert pool.map(work, range(4)) == [b"0", b"1", b"2", b"3"]
                    pool.close()
                    pool.join()
                    assert connection.is_open and connection.client.tunnel(b"x") == b"x"
            if __name__ == "__main__":
                main(METHOD)
        """
        for method in ("fork", "forkserver", "spawn"):
            with self.subTest(method):
                self.run_program(program.replace("METHOD", repr(method)))
        self.server.is_left_alone()


class Errors(unittest.TestCase):
    def test_can_be_pickled(self) -> None:
        error = quorvel.RefusedError(21, "open profile 1", 5)
        again = pickle.loads(pickle.dumps(error))
        self.assertEqual((type(again), again.status, again.reason, str(again)), (type(error), 21, 5, str(error)))


if __name__ == "__main__":
    unittest.main()
