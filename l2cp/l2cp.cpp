#include "l2cp/l2cp.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "l2cp/mutexGuard.h"
#include "l2cp/registration.h"
#include "platform/BLLManager.h"
#include "rpc/server.h"

template class singleton<L2CP>;

namespace {

const bool registered =
    singleton<BLLManager>::instance().registerEntity(singleton<L2CP>::instance());

}  // namespace

bool l2cpIsRegistered() { return registered; }

L2CP::L2CP() : BLEntity("l2cp"), rpcProxy(rpcL2CPStart, "L2CP_mng") {
  pthread_mutex_init(&nameMutex, nullptr);
}

L2CP::~L2CP() noexcept {
  {
    const MutexGuard guard(nameMutex);
    nameIndex.clear();
    while (!nameTable.empty()) {
      std::free(nameTable.front());
      nameTable.pop_front();
    }
  }
  pthread_mutex_destroy(&nameMutex);
}

void L2CP::Debug(const char* format, ...) const {
  if (!debug) return;
  va_list arguments;
  va_start(arguments, format);
  vsyslog(LOG_DEBUG, format, arguments);
  va_end(arguments);
}

void L2CP::externalMessage(const std::string& command, const std::string& argument,
                           std::ostringstream* /*output*/) {
  if (command == "l2cp_debug") {
    debug = std::strtol(argument.c_str(), nullptr, 10) != 0;
  } else if (command == "l2cp_dump") {
    dumpNames();
  }
}

void L2CP::dumpNames() {
  constexpr const char* rule = "---------------------------------------------------";
  syslog(LOG_INFO, "%s", "Use Len Short name    Name");
  syslog(LOG_INFO, "%s", rule);
  {
    const MutexGuard guard(nameMutex);
    for (NameEntry* entry : nameTable) {
      syslog(LOG_INFO, "%3d %3ld l2cp:%p %s", entry->useCount,
             static_cast<long>(std::strlen(entry->name())), static_cast<void*>(entry),
             entry->name());
    }
  }
  syslog(LOG_INFO, "%s", rule);
}
