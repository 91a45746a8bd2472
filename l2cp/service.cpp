#include "l2cp/l2cp.h"
#include "l2cp/trace.h"

int L2CP::profileApplyCheck(int intf, const std::string& serviceProfile) {
  Debug("%s:%d %s(intf=%d, serviceProfile=\"%s\")", L2CP_TRACE_SITE, __func__, intf,
        serviceProfile.c_str());
  return 0;
}
