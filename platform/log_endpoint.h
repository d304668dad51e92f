// The log endpoint on Linux: a Unix datagram socket at
// $MARLOWEN_ROOT/run/marlowen/<name>, bound by a listener with mode 0666.
// Clients connect to it; the connect fails while no listener is bound, and a
// send to a listener that has gone fails with ECONNREFUSED, so a client can
// notice a restart and connect again.
#pragma once

#include <cstddef>
#include <string>

namespace platform {

// Client side. Both functions are async-signal-safe: no heap, no lock.

// A close-on-exec datagram socket connected to the endpoint of that name
// (UTF-8), never descriptor 0; -1 on any failure.
int ConnectLogEndpoint(const char* name);

// One datagram, without waiting and without SIGPIPE. The bytes sent, or -1
// (errno set) when nobody listens any more or the listener's queue is full.
long SendLogDatagram(int socket, const void* data, std::size_t size);

// Listener side.

// Creates the endpoint's folder if needed and binds a datagram socket at
// path with mode 0666. A socket file left behind by a listener that is gone
// is replaced; a live listener is not. -1 with *error set on failure.
int BindLogEndpoint(const std::string& path, std::string* error);

}  // namespace platform
