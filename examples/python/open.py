#!/usr/bin/python3
"""Opens the default connection, prints what it got, and closes it."""

import quorvel

with quorvel.connect() as connection:
    print("interface  ", connection.info.interface)
    print("address    ", connection.info.address)
    for server in connection.info.dns_servers:
        print("DNS server ", server)
