#include "rpc/server.h"

#include "rpc/l2cp.h"
#include "rpc/rte/BLL/core/rpcProxy.h"

// The dispatch routine that rpcgen makes of the interface file.
extern "C" void l2cp_program_1(struct svc_req* request, SVCXPRT* transport);

void* rpcL2CPStart(void* /*interruptionHook*/) {
  rpcProxyRegisterSvc(L2CP_PROGRAM, L2CP_VERSION, l2cp_program_1);
  return nullptr;
}
