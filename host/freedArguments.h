#pragma once

/* For the dispatcher that rpcgen writes, which forgets what it has decoded of arguments that fail:
   a list's announced length is enough to make that two hundred times as much as was sent. */

#include <rpc/rpc.h>

static inline bool_t l2cpd_getargs(SVCXPRT* transport, xdrproc_t filter, void* arguments) {
  if (svc_getargs(transport, filter, arguments)) return TRUE;
  svc_freeargs(transport, filter, arguments);
  return FALSE;
}

#undef svc_getargs
#define svc_getargs l2cpd_getargs
