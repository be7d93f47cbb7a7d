"""What can go wrong with a server."""


class Error(Exception):
    """A job failed."""


class Refused(Error):
    """The server refused what it was asked to do; the text has its reason where it is known."""


class ServerBusy(Error, TimeoutError):
    """Another client kept the server for longer than we wanted to wait."""


class ConnectionLost(Error, ConnectionError):
    """There is no connection to the server, or it broke."""
