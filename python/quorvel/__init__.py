"""Data connections for applications: opens packet-data and Wi-Fi connections by profile, says what happens to them, and
resolves names over exactly the connection that was opened.

    with quorvel.connect("Internet") as connection:          # or with no name: the default profile
        print(connection.info.interface, connection.info.address)
        print(connection.resolve("www.example.com").addresses)

    async with quorvel.connect("Internet") as connection:
        async for event in connection:
            print(event)

Whoever wants more than one connection makes a Client or an AsyncClient. The C library registers threads; here every
client has a small thread of its own that is registered, so that any thread may use any client, and no thread of the
library ever runs Python: events wait in a queue until the loop, or whoever iterates, takes them. In the child of a fork
there are no clients: those of the parent give NotRegisteredError there, and new ones can be made.
"""

from . import names
from ._aio import AsyncApplications, AsyncClient, AsyncConnecting, AsyncConnection, AsyncProfiles
from ._client import Applications, Client, Connection, Profiles
from ._connect import Connecting, connect
from ._errors import (
    AlreadyExistsError,
    ClosingError,
    Error,
    ExchangeError,
    InvalidParameterError,
    InvalidProfileError,
    LimitError,
    LinkError,
    NameNotFoundError,
    NotActiveError,
    NotRegisteredError,
    RefusedError,
    Status,
)
from ._profiles import PacketDataProfile, Profile, WifiProfile
from ._records import (
    ActiveConnection,
    Address,
    AddressChanged,
    Application,
    Closed,
    ConnectionInfo,
    Event,
    EventsLost,
    Host,
    Interface,
    Killed,
    NetworkStatusChanged,
    Opened,
    OtherAddress,
    ProfileSummary,
    Resumed,
    Statistics,
    Stopped,
    Suspended,
    TunnelIndication,
    TunnelResponse,
    UnknownEvent,
)

__all__ = [
    "ActiveConnection",
    "Address",
    "AddressChanged",
    "AlreadyExistsError",
    "Application",
    "Applications",
    "AsyncApplications",
    "AsyncClient",
    "AsyncConnecting",
    "AsyncConnection",
    "AsyncProfiles",
    "Client",
    "Closed",
    "ClosingError",
    "Connecting",
    "Connection",
    "ConnectionInfo",
    "Error",
    "Event",
    "EventsLost",
    "ExchangeError",
    "Host",
    "Interface",
    "InvalidParameterError",
    "InvalidProfileError",
    "Killed",
    "LimitError",
    "LinkError",
    "NameNotFoundError",
    "NetworkStatusChanged",
    "NotActiveError",
    "NotRegisteredError",
    "Opened",
    "OtherAddress",
    "PacketDataProfile",
    "Profile",
    "ProfileSummary",
    "Profiles",
    "RefusedError",
    "Resumed",
    "Statistics",
    "Status",
    "Stopped",
    "Suspended",
    "TunnelIndication",
    "TunnelResponse",
    "UnknownEvent",
    "WifiProfile",
    "connect",
    "names",
]
