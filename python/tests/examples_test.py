"""The examples, as they are."""

from __future__ import annotations

import os
import subprocess
import sys
import unittest

from support import ServerTest

FOLDER = os.environ["QUORVEL_EXAMPLES"]


class Examples(ServerTest):
    def run_example(self, name: str, *arguments: str, status: int = 0) -> list[str]:
        command = [sys.executable, "-X", "dev", "-W", "error", f"{FOLDER}/{name}.py", *arguments]
        result = subprocess.run(command, capture_output=True, text=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (status, ""))
        return result.stdout.splitlines()

    def test_open(self) -> None:
        printed = self.run_example("open")
        self.assertEqual(printed[1:], ["address     192.0.2.1", "DNS server  127.0.0.1"])

    def test_resolve(self) -> None:
        self.assertEqual(self.run_example("resolve", "localhost", "127.0.0.7")[0], "localhost 127.0.0.1")

    def test_tunnel(self) -> None:
        self.assertEqual(self.run_example("tunnel", "hello, you"), ["hello, you"])

    def test_profiles(self) -> None:
        printed = self.run_example("profiles")
        self.assertIn("5 Example example.org", printed)
        self.assertTrue(printed[-1].startswith("open on"), printed)
        self.assertEqual(self.server.list()["clients"], [])

    def test_keep(self) -> None:
        command = [sys.executable, f"{FOLDER}/keep.py", "60"]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as example:
            assert example.stdout is not None
            self.assertEqual(example.stdout.readline(), "open, 192.0.2.1\n")
            self.server.ctl("stop")
            self.assertIn("Stopped(profile_id=1, result=21", example.stdout.readline())
            self.assertEqual(example.stdout.readline(), "open, 192.0.2.1\n")
            example.kill()

    def test_are_all_tested(self) -> None:
        tested = {name.removeprefix("test_") for name in dir(self) if name.startswith("test_")} - {"are_all_tested"}
        self.assertEqual({name.removesuffix(".py") for name in os.listdir(FOLDER) if name.endswith(".py")}, tested)


if __name__ == "__main__":
    unittest.main()
