#pragma once

#include <rpc/rpc.h>

#ifdef __cplusplus
extern "C" {
#endif

/// `xdr_string` for a server's filters. It decodes and frees alike, but never fails a reply for the
/// sake of a text: an absent text is encoded as an empty one, so that the error code beside it
/// reaches the client, and a text longer than `bound` bytes is cut to that length.
bool_t l2cp_xdr_text(XDR* xdrs, char** text, u_int bound);

#ifdef __cplusplus
}
#endif
