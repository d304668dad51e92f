"""Loopback listeners that can be switched between serving and refusing.

"Refusing" keeps the port bound by a socket that never listens: Linux then
answers a connection attempt with a reset, exactly what a client sees when the
server is down, while no other program can take the port meanwhile.
"""

import ipaddress
import socket
import threading
from http.server import ThreadingHTTPServer
from socketserver import TCPServer

POLL_INTERVAL = 0.05


def loopback_address(host):
    """Returns (family, literal address) for a loopback host, else raises ValueError."""
    if host == "localhost":
        host = "127.0.0.1"
    try:
        address = ipaddress.ip_address(host)
    except ValueError:
        raise ValueError(f"{host!r} is not an IP address or localhost") from None
    if not address.is_loopback:
        raise ValueError(f"{host} is not a loopback address; the collector serves loopback only")
    family = socket.AF_INET6 if address.version == 6 else socket.AF_INET
    return family, str(address)


def url_host(host):
    return f"[{host}]" if ":" in host else host


class CollectorServer(ThreadingHTTPServer):
    """One HTTP server; its owner's handle_connection decides what happens
    with each accepted connection, on the connection's own thread."""

    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, family, address, handler_class, role, owner):
        self.address_family = family
        self.role = role
        self.owner = owner
        super().__init__(address, handler_class)

    def server_bind(self):
        # HTTPServer would look up the host's full name here, which may wait on DNS.
        TCPServer.server_bind(self)
        self.server_name = self.server_address[0]
        self.server_port = self.server_address[1]

    def finish_request(self, request, client_address):
        self.owner.handle_connection(self, request, client_address)


class Listener:
    """A port that serves, or stays bound while refusing connections."""

    def __init__(self, role, family, host, port, handler_class, owner):
        self.role = role
        self.family = family
        self.host = host
        self.port = port
        self._handler_class = handler_class
        self._owner = owner
        self._lock = threading.Lock()
        self._server = None
        self._thread = None
        self._placeholder = None

    def start(self, refusing=False):
        with self._lock:
            # Served first even when refusing, so that a port chosen by the
            # system is known and then held.
            self._serve()
            if refusing:
                self._refuse()

    def set_refusing(self, refusing):
        """Switches state; after a failed switch the next call tries again."""
        with self._lock:
            if refusing:
                if self._placeholder is None:
                    self._refuse()
            elif self._server is None:
                if self._placeholder is not None:
                    self._placeholder.close()
                    self._placeholder = None
                self._serve()

    def close(self):
        with self._lock:
            self._stop_server()
            if self._placeholder is not None:
                self._placeholder.close()
                self._placeholder = None

    def _serve(self):
        server = CollectorServer(self.family, (self.host, self.port), self._handler_class,
                                 self.role, self._owner)
        self._server = server
        self.port = server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever,
                                        kwargs={"poll_interval": POLL_INTERVAL},
                                        name=f"{self.role}-listener", daemon=True)
        self._thread.start()

    def _refuse(self):
        self._stop_server()
        placeholder = socket.socket(self.family, socket.SOCK_STREAM)
        try:
            placeholder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            placeholder.bind((self.host, self.port))
        except OSError:
            placeholder.close()
            raise
        self._placeholder = placeholder

    def _stop_server(self):
        if self._server is not None:
            self._server.shutdown()
            self._server.server_close()
            self._thread.join()
            self._server = None
            self._thread = None
