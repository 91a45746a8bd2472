#include "host/module.h"

#include <string>

#include "host/profiles.h"
#include "l2cp/l2cp.h"

void connectModule() {
  L2CP& module = singleton<L2CP>::instance();
  profiles::setModule({
      .applyCheck = [&module](
                        int intf,
                        const std::string& name) { return module.profileApplyCheck(intf, name); },
      .apply = [&module](int intf,
                         const std::string& name) { return module.profileApply(intf, name); },
      .unApply = [&module](int intf,
                           const std::string& name) { return module.profileUnApply(intf, name); },
  });
}
