#include "rpc/error_map.h"

rpc_l2cp_error wireError(int result, std::span<const ErrorMapping> mappings) {
  if (result == 0) return RPC_L2CP_OK;
  for (const ErrorMapping& mapping : mappings) {
    if (mapping.result == result) return mapping.error;
  }
  return RPC_L2CP_ERR_FAILED;
}
