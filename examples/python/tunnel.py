#!/usr/bin/python3
"""Sends a text to the CM server through the tunnel and prints the answer: tunnel.py TEXT"""

import sys

import quorvel

with quorvel.Client() as client:
    print(client.tunnel(sys.argv[1].encode()).decode())
