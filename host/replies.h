#pragma once

/// Has the system cut off clients that let their replies pile up, on every TCP transport that is
/// registered by now. The RPC library writes a reply while everybody else waits; for a client that
/// does not read, it would keep trying for seconds.
void limitUnreadReplies();
