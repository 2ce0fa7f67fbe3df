#!/usr/bin/python3
"""Stores a profile, changes it, opens it by its name, and deletes it."""

import quorvel

with quorvel.Client() as client:
    number = client.profiles.add(quorvel.PacketDataProfile(name="Example", apn="example.org", user_name="me"))
    try:
        profile = client.profiles.read(number)
        profile.proxy = "10.0.0.1:8080"
        client.profiles.change(profile)
        for stored in client.profiles.list():
            print(stored.id, stored.name, stored.network_name)
        try:
            with client.connect("Example") as connection:
                print("open on", connection.info.interface)
        except quorvel.RefusedError as error:
            print(f"no connection: status {error.status}, reason {error.reason}")
    finally:
        client.profiles.delete(number)
