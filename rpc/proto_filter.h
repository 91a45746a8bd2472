#pragma once

/// A filter for protocols in lists, for the sources that rpcgen makes. It does what the generated
/// one does, which runs where the stream does not have the bytes in one piece; but it asks the
/// stream for all plain fields that follow each other at once, which is a third of the time of a
/// long list.

// NOLINTBEGIN: C, as the generated sources are

#include "rpc/inline_filters.h"
#include "rpc/l2cp.h"

#define INLINE_PROTO_NAME_BOUND 33
#define INLINE_PROTO_MAC_BOUND 6

static inline bool_t inline_encode_proto(XDR* xdrs, rpc_l2cp_proto* proto) {
  const u_int macSize = proto->mac.rpc_l2cp_mac_t_len;
  int32_t* words = NULL;
  size_t size = 0;
  u_int i = 0;
  if (proto->name == NULL || macSize > INLINE_PROTO_MAC_BOUND) {
    return xdr_rpc_l2cp_proto(xdrs, proto);
  }
  size = strlen(proto->name);
  if (size <= INLINE_PROTO_NAME_BOUND) {
    words = XDR_INLINE(xdrs, (u_int)RNDUP(size) + (7 + macSize) * BYTES_PER_XDR_UNIT);
  }
  if (words == NULL) return xdr_rpc_l2cp_proto(xdrs, proto);

  IXDR_PUT_BOOL(words, proto->protect != FALSE);
  words = inline_put_text(words, proto->name, size);
  IXDR_PUT_U_INT32(words, macSize);
  for (i = 0; i < macSize; ++i) IXDR_PUT_U_INT32(words, proto->mac.rpc_l2cp_mac_t_val[i]);
  IXDR_PUT_U_INT32(words, proto->ether_type);
  IXDR_PUT_U_INT32(words, proto->sub_type);
  IXDR_PUT_U_INT32(words, proto->use_count);
  IXDR_PUT_INT32(words, proto->error);
  return TRUE;
}

static inline bool_t inline_decode_proto(XDR* xdrs, rpc_l2cp_proto* proto) {
  int32_t* words = XDR_INLINE(xdrs, 2 * BYTES_PER_XDR_UNIT);
  u_int size = 0;
  if (words == NULL) return xdr_rpc_l2cp_proto(xdrs, proto);
  proto->protect = IXDR_GET_INT32(words) != 0;
  size = IXDR_GET_U_INT32(words);
  if (!inline_decode_sized_text(xdrs, &proto->name, size, INLINE_PROTO_NAME_BOUND)) return FALSE;
  if (!xdr_rpc_l2cp_mac_t(xdrs, &proto->mac)) return FALSE;

  words = XDR_INLINE(xdrs, 4 * BYTES_PER_XDR_UNIT);
  if (words == NULL) {
    return xdr_rpc_l2cp_ethertype_hf_t(xdrs, &proto->ether_type) &&
           xdr_rpc_l2cp_subtype_t(xdrs, &proto->sub_type) && xdr_u_int(xdrs, &proto->use_count) &&
           xdr_rpc_l2cp_error(xdrs, &proto->error);
  }
  proto->ether_type = (u_short)IXDR_GET_U_INT32(words);
  proto->sub_type = (u_char)IXDR_GET_U_INT32(words);
  proto->use_count = IXDR_GET_U_INT32(words);
  proto->error = IXDR_GET_ENUM(words, rpc_l2cp_error);
  return TRUE;
}

static bool_t inline_xdr_listed_proto(XDR* xdrs, rpc_l2cp_proto* proto) {
  if (xdrs->x_op == XDR_ENCODE) return inline_encode_proto(xdrs, proto);
  if (xdrs->x_op == XDR_DECODE) return inline_decode_proto(xdrs, proto);
  return xdr_rpc_l2cp_proto(xdrs, proto);
}

#undef INLINE_PROTO_NAME_BOUND
#undef INLINE_PROTO_MAC_BOUND

static inline xdrproc_t inline_filter_of_listed(xdrproc_t filter) {
  return filter == (xdrproc_t)xdr_rpc_l2cp_proto ? (xdrproc_t)inline_xdr_listed_proto : filter;
}

#undef xdr_array
#define xdr_array(xdrs, elements, count, bound, size, filter) \
  inline_xdr_array(xdrs, elements, count, bound, size, inline_filter_of_listed(filter))

// NOLINTEND
