#include "tests/support/rpc_service.h"

#include "rpc/server.h"

namespace support {

RpcService& RpcService::instance() {
  static RpcService service;
  return service;
}

void RpcService::reset() {
  runs = 0;
  body = nullptr;
}

}  // namespace support

void* rpcL2CPStart(void* /*interruptionHook*/) {
  support::RpcService& service = support::RpcService::instance();
  ++service.runs;
  if (service.body) service.body();
  return nullptr;
}
