"""A CM server of a test's own, on the real path: quorvel-isolate gives each test process a /tmp and a network."""

from __future__ import annotations

import json
import os
import subprocess
import sys
import textwrap
import time
import unittest
from pathlib import Path
from typing import Any, Callable

PROGRAMS = Path(os.environ["QUORVEL_PROGRAMS"])

CONFIGURATION = """
[[network]]
apn = "internet.example"
bearer = "simulated"
address = "192.0.2.1"
dns = ["127.0.0.1"]

[[network]]
apn = "slow.example"
bearer = "simulated"
delay = "30m"

[[network]]
apn = "refused.example"
bearer = "simulated"
refusal = "refused"

[[network]]
kind = "wlan"
bearer = "simulated"
address = "192.0.2.2"

[[network]]
kind = "pdp"
bearer = "simulated"
address = "192.0.2.3"

[[profile]]
name = "Internet"
apn = "internet.example"
default = true

[[profile]]
name = "Slow"
apn = "slow.example"

[[profile]]
name = "Refused"
apn = "refused.example"

[[profile]]
name = "Home"
kind = "wlan"
essid = "home"
security-mode = "psk"
psk = "a passphrase"
"""


class Server:
    """`cm-server`, from its first to its last moment."""

    def __init__(self) -> None:
        configuration = Path("/tmp/cm-server.toml")
        configuration.write_text("set-up-limit = \"1h\"\n" + CONFIGURATION)
        self.log = Path("/tmp/cm-server.log")
        self.start()

    def start(self) -> None:
        with self.log.open("w") as log:
            command = [str(PROGRAMS / "cm-server"), "--config", "/tmp/cm-server.toml", "--db", ":memory:"]
            self.process = subprocess.Popen(command, stdout=log, stderr=log)
        until(lambda: "listening on" in self.log.read_text() or self.process.poll() is not None)
        if self.process.poll() is not None:
            raise AssertionError(self.log.read_text())

    def ctl(self, *arguments: str) -> str:
        command = [str(PROGRAMS / "cm-server"), "ctl", *arguments]
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout

    def kill(self) -> None:
        self.process.kill()
        self.process.wait()

    def stop(self) -> None:
        self.process.terminate()
        self.process.wait()

    def is_left_alone(self) -> None:
        """Waits until nobody is registered."""
        until(lambda: not self.list()["clients"])

    def list(self) -> Any:
        return json.loads(self.ctl("list", "--json"))


def until(condition: Callable[[], Any]) -> None:
    """For a busy machine."""
    end = time.monotonic() + 30
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.01)


class ServerTest(unittest.TestCase):
    """Tests that share a server."""

    maxDiff = None
    server: Server

    @classmethod
    def setUpClass(cls) -> None:
        cls.server = Server()

    @classmethod
    def tearDownClass(cls) -> None:
        cls.server.stop()

    def setUp(self) -> None:
        self.addCleanup(self.server.ctl, "clear-faults")

    def run_program(self, program: str, closes: bool = True) -> str:
        """Runs a program of its own, in which every warning is an error: what it has printed. It says nothing else, and
        ends well. One that does not close what it has opened is not to be told so."""
        path = Path("/tmp/program.py")
        path.write_text(textwrap.dedent(program))
        ignored = [] if closes else ["-W", "ignore::ResourceWarning"]
        command = [sys.executable, "-W", "error", *ignored, str(path)]
        result = subprocess.run(command, capture_output=True, text=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout
