#!/usr/bin/python3
"""Keeps the default connection open for some seconds (10, or as many as are given): when it ends, whether by the
network or because the CM server has gone, it is opened again. Registration comes back by itself."""

import asyncio
import sys

import quorvel


async def keep(client: quorvel.AsyncClient) -> None:
    while True:
        try:
            async with client.connect() as connection:
                print("open,", connection.info.address, flush=True)
                async for event in connection:
                    print(event, flush=True)
        except quorvel.Error as error:
            print("not yet:", error, flush=True)
        await asyncio.sleep(1)


async def main(seconds: float) -> None:
    async with quorvel.AsyncClient() as client:
        try:
            async with asyncio.timeout(seconds):
                await keep(client)
        except TimeoutError:
            print("done")


asyncio.run(main(float(sys.argv[1]) if len(sys.argv) > 1 else 10))
