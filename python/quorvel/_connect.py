"""A connection in one line, with a client of its own."""

from __future__ import annotations

from types import TracebackType

from ._aio import AsyncClient, AsyncConnection
from ._client import Client, Connection


class Connecting:
    """Opens a connection when it is entered, with `with` or `async with`, and closes it at the end of the block."""

    def __init__(self, profile: int | str | None) -> None:
        self._profile = profile

    def __enter__(self) -> Connection:
        client = Client()
        try:
            self._connection = client.connect(self._profile)
        except BaseException:
            client.leave()
            raise
        return self._connection

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        client = self._connection.client
        try:
            self._connection.close()
        except BaseException:
            client.leave()
            raise
        client.close()

    async def __aenter__(self) -> AsyncConnection:
        client = AsyncClient()
        await client.start()
        try:
            self._async_connection = await client.connect(self._profile)
        except BaseException:
            client.leave()
            raise
        return self._async_connection

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        client = self._async_connection.client
        try:
            await self._async_connection.close()
        except BaseException:
            client.leave()
            raise
        await client.close()


def connect(profile: int | str | None = None) -> Connecting:
    """A connection of a profile's id or name; None is the default profile.

        with quorvel.connect("Internet") as connection:
            print(connection.info.address)

        async with quorvel.connect("Internet") as connection:
            async for event in connection:
                print(event)
    """
    return Connecting(profile)
