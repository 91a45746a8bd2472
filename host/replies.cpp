#include "host/replies.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <rpc/rpc.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "host/log.h"

namespace {

// Milliseconds in which a client with a full window has to make some room. A client that is alive
// needs a fraction of it, and others can wait that long.
constexpr unsigned int unreadTimeout = 500;

bool listens(int socket) {
  int listening = 0;
  socklen_t size = sizeof(listening);
  return getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening != 0;
}

}  // namespace

void limitUnreadReplies() {
  for (int socket = 0; socket < FD_SETSIZE; ++socket) {
    if (!FD_ISSET(socket, &svc_fdset) || !listens(socket)) continue;
    // Connections inherit it from the socket that accepts them.
    if (setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &unreadTimeout, sizeof(unreadTimeout)) !=
        0) {
      hostlog::warning("rpc", "clients that do not read their replies can hold up others");
    }
  }
}
