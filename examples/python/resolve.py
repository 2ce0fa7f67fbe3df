#!/usr/bin/python3
"""Resolves host names over the default profile's connection, all at once: resolve.py NAME..."""

import asyncio
import sys

import quorvel


async def main(names: list[str]) -> int:
    async with quorvel.connect() as connection:
        hosts = await asyncio.gather(*map(connection.resolve, names), return_exceptions=True)
    for host in hosts:
        if isinstance(host, quorvel.Host):
            print(host.name, *host.addresses)
        else:
            print(host, file=sys.stderr)
    return sum(isinstance(host, BaseException) for host in hosts)


sys.exit(asyncio.run(main(sys.argv[1:])))
