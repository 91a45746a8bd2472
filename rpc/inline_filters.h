#pragma once

/// XDR filters for the sources that rpcgen makes. Each does what the RPC library's filter of that
/// name does: same bytes, same values, same memory, same failures. But it asks the stream once for
/// the place of its bytes and works there, where the library takes two or three calls for every
/// word, which is most of what a long reply costs. If the stream does not have the bytes in one
/// piece (there is too little room, or a fragment of a record ends among them), the library's own
/// filter runs.

// NOLINTBEGIN: C, as the generated sources are

#include <limits.h>
#include <rpc/rpc.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#endif

/// Longer texts and arrays are left to the library, so that no number from the wire overflows.
#define INLINE_MAX_COUNT 65536

/// `fromField` makes a word of the field's `value`, `fromWord` the field of the word's.
#define INLINE_WORD_FILTER(filter, Type, fromField, fromWord)    \
  static inline bool_t inline_##filter(XDR* xdrs, Type* field) { \
    int32_t* word = NULL;                                        \
    if (xdrs->x_op == XDR_FREE) return TRUE;                     \
    word = XDR_INLINE(xdrs, BYTES_PER_XDR_UNIT);                 \
    if (word == NULL) return filter(xdrs, field);                \
    if (xdrs->x_op == XDR_ENCODE) {                              \
      const Type value = *field;                                 \
      *word = (int32_t)htonl((uint32_t)(fromField));             \
    } else {                                                     \
      const uint32_t value = ntohl((uint32_t)*word);             \
      *field = (Type)(fromWord);                                 \
    }                                                            \
    return TRUE;                                                 \
  }
INLINE_WORD_FILTER(xdr_u_int, u_int, value, value)
INLINE_WORD_FILTER(xdr_u_short, u_short, value, value)
INLINE_WORD_FILTER(xdr_u_char, u_char, value, value)
INLINE_WORD_FILTER(xdr_enum, enum_t, value, value)
INLINE_WORD_FILTER(xdr_bool, bool_t, value != FALSE, value != 0)
#undef INLINE_WORD_FILTER

/// Zeroed memory. Other than calloc, it takes small blocks from those that the allocator keeps at
/// hand for a thread, to which a client returns them. (Compilers that know malloc make calloc of
/// this.) Large ones stay with calloc, which need not write to them.
static inline void* inline_zeroed(u_int count, u_int size) {
  void* block = NULL;
  if (count > 1024 / size) return calloc(count, size);
  block = malloc((size_t)count * size);
  if (block != NULL) memset(block, 0, (size_t)count * size);
  return block;
}

/// A counted array of bytes that travel as a word each.
static inline bool_t inline_xdr_u_chars(XDR* xdrs, u_char** bytes, u_int* count, u_int bound) {
  int32_t* words = NULL;
  u_int i = 0;
  if (xdrs->x_op == XDR_FREE) {
    free(*bytes);
    *bytes = NULL;
    return TRUE;
  }
  if (!inline_xdr_u_int(xdrs, count) || *count > bound) return FALSE;
  if (*count == 0) return TRUE;
  if (xdrs->x_op == XDR_DECODE && *bytes == NULL) {
    *bytes = (u_char*)inline_zeroed(*count, 1);
    if (*bytes == NULL) return FALSE;
  }

  if (*count <= INLINE_MAX_COUNT) words = XDR_INLINE(xdrs, *count * BYTES_PER_XDR_UNIT);
  if (words == NULL) {
    for (i = 0; i < *count; ++i) {
      if (!xdr_u_char(xdrs, *bytes + i)) return FALSE;
    }
  } else if (xdrs->x_op == XDR_ENCODE) {
    for (i = 0; i < *count; ++i) words[i] = (int32_t)htonl((*bytes)[i]);
  } else {
    for (i = 0; i < *count; ++i) (*bytes)[i] = (u_char)ntohl((uint32_t)words[i]);
  }
  return TRUE;
}

static inline bool_t inline_decode_array(XDR* xdrs, char** elements, u_int* count, u_int bound,
                                         u_int size, xdrproc_t filter) {
  u_int i = 0;
  if (!inline_xdr_u_int(xdrs, count) || *count > bound || *count > UINT_MAX / size) return FALSE;
  if (*count == 0) return TRUE;
  if (*elements == NULL) *elements = (char*)inline_zeroed(*count, size);
  if (*elements == NULL) return FALSE;
  for (i = 0; i < *count; ++i) {
    if (!filter(xdrs, *elements + (size_t)i * size)) return FALSE;
  }
  return TRUE;
}

static inline bool_t inline_xdr_array(XDR* xdrs, char** elements, u_int* count, u_int bound,
                                      u_int size, xdrproc_t filter) {
  if (filter == (xdrproc_t)xdr_u_char) {
    return inline_xdr_u_chars(xdrs, (u_char**)elements, count, bound);
  }
  // Elements other than bytes take long enough for the library's loop to go unnoticed.
  return xdrs->x_op == XDR_DECODE ? inline_decode_array(xdrs, elements, count, bound, size, filter)
                                  : xdr_array(xdrs, elements, count, bound, size, filter);
}

/// Writes a text behind its length and returns what follows its padding.
static inline int32_t* inline_put_text(int32_t* words, const char* text, size_t size) {
  *words++ = (int32_t)htonl((uint32_t)size);
  memcpy(words, text, size);
  memset((char*)words + size, 0, RNDUP(size) - size);
  return words + RNDUP(size) / BYTES_PER_XDR_UNIT;
}

static inline bool_t inline_encode_text(XDR* xdrs, char** text, u_int bound) {
  int32_t* words = NULL;
  size_t size = 0;
  if (*text == NULL) return FALSE;
  size = strlen(*text);
  if (size <= bound && size <= INLINE_MAX_COUNT) {
    words = XDR_INLINE(xdrs, BYTES_PER_XDR_UNIT + RNDUP((u_int)size));
  }
  if (words == NULL) return xdr_string(xdrs, text, bound);
  inline_put_text(words, *text, size);
  return TRUE;
}

/// Decodes a text whose length has been decoded.
static inline bool_t inline_decode_sized_text(XDR* xdrs, char** text, u_int size, u_int bound) {
  char* bytes = *text;
  int32_t* words = NULL;
  if (size > bound || size == UINT_MAX) return FALSE;
  if (bytes == NULL) bytes = (char*)malloc(size + 1);
  if (bytes == NULL) return FALSE;

  bytes[size] = '\0';
  if (size <= INLINE_MAX_COUNT) words = XDR_INLINE(xdrs, RNDUP(size));
  if (words != NULL) {
    memcpy(bytes, words, size);
  } else if (!xdr_opaque(xdrs, bytes, size)) {
    if (*text == NULL) free(bytes);
    return FALSE;
  }
  *text = bytes;
  return TRUE;
}

static inline bool_t inline_decode_text(XDR* xdrs, char** text, u_int bound) {
  u_int size = 0;
  return inline_xdr_u_int(xdrs, &size) && inline_decode_sized_text(xdrs, text, size, bound);
}

static inline bool_t inline_xdr_string(XDR* xdrs, char** text, u_int bound) {
  if (xdrs->x_op == XDR_ENCODE) return inline_encode_text(xdrs, text, bound);
  if (xdrs->x_op == XDR_DECODE) return inline_decode_text(xdrs, text, bound);
  free(*text);
  *text = NULL;
  return TRUE;
}

#undef INLINE_MAX_COUNT

#ifdef __cplusplus
#pragma GCC diagnostic pop
#endif

// From here on, calls are to these. A filter that is passed on is still the library's.
#define xdr_u_int(xdrs, field) inline_xdr_u_int(xdrs, field)
#define xdr_u_short(xdrs, field) inline_xdr_u_short(xdrs, field)
#define xdr_u_char(xdrs, field) inline_xdr_u_char(xdrs, field)
#define xdr_enum(xdrs, field) inline_xdr_enum(xdrs, field)
#define xdr_bool(xdrs, field) inline_xdr_bool(xdrs, field)
#define xdr_array(xdrs, elements, count, bound, size, filter) \
  inline_xdr_array(xdrs, elements, count, bound, size, filter)
#ifndef xdr_string
#define xdr_string(xdrs, text, bound) inline_xdr_string(xdrs, text, bound)
#endif

// NOLINTEND
