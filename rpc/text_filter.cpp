#include "rpc/text_filter.h"

#include <string>
#include <string_view>

#include "rpc/inline_filters.h"

bool_t l2cp_xdr_text(XDR* xdrs, char** text, u_int bound) {
  if (xdrs->x_op != XDR_ENCODE) return xdr_string(xdrs, text, bound);

  const std::string_view whole = *text == nullptr ? std::string_view() : *text;
  if (*text != nullptr && whole.size() <= bound) return xdr_string(xdrs, text, bound);
  std::string sent(whole.substr(0, bound));
  char* begin = sent.data();
  return xdr_string(xdrs, &begin, bound);
}
