#include "tests/support/recording_classifier.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/br_open.h"

// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast, performance-no-int-to-ptr): kernel
// records are bytes, and short names are addresses

namespace support {

namespace {

std::size_t recordSize(unsigned long code) {
  switch (code) {
    case ACL_ADD_SELECTOR:
    case ACL_DEL_SELECTOR:
    case ACL_ADD_CONDITION:
      return sizeof(acl_ioctl_selector);
    case ACL_ADD_ACTION_LIST:
    case ACL_DEL_ACTION_LIST:
    case ACL_ADD_ACTION:
      return sizeof(acl_ioctl_action);
    case ACL_ADD_PORT_ENTRY:
    case ACL_DEL_PORT_ENTRY:
    case ACL_GET_PORT_ENTRY:
      return sizeof(acl_ioctl_port_entry);
    case ACL_ADD_COUNTER:
    case ACL_DEL_COUNTER:
      return ACL_NAME_SIZE;
    case ACL_GET_COUNTER:
      return sizeof(acl_ioctl_counter);
    default:
      return 0;
  }
}

Request recorded(unsigned long code, const void* record) {
  Request request;
  request.code = code;
  request.nullRecord = record == nullptr;
  if (record == nullptr) return request;
  const auto* bytes = static_cast<const unsigned char*>(record);
  request.bytes.assign(bytes, bytes + recordSize(code));
  // A selector is deleted with the record of its last condition when that one was refused.
  if (code == ACL_ADD_CONDITION || code == ACL_DEL_SELECTOR) {
    const auto selector = request.as<acl_ioctl_selector>();
    if (selector.conditionType == ACL_CONDITION_PAYLOAD) {
      const auto payload = selector.conditionData.payload;
      request.payloadMask = *reinterpret_cast<const unsigned char*>(payload.mask);
      request.payloadValue = *reinterpret_cast<const unsigned char*>(payload.value);
    }
  }
  return request;
}

int refuse(int error) {
  errno = error;
  return -1;
}

}  // namespace

RecordingClassifier& RecordingClassifier::instance() {
  static RecordingClassifier classifier;
  return classifier;
}

void RecordingClassifier::reset() {
  requests.clear();
  refusal = nullptr;
  bridge.clear();
  table.clear();
  opened = 0;
  openError = 0;
  openFailure = -1;
  counters.clear();
  entries.clear();
}

std::vector<Request> RecordingClassifier::take() { return std::exchange(requests, {}); }

std::vector<std::string> RecordingClassifier::names(bool withQueries) const {
  std::vector<std::string> result;
  for (const Request& request : requests) {
    if (withQueries || request.code != ACL_GET_PORT_ENTRY) {
      result.emplace_back(requestName(request.code));
    }
  }
  return result;
}

void RecordingClassifier::refuseAt(std::size_t position, int error) {
  refusal = [this, position, error](const Request&) {
    return requests.size() == position + 1 ? error : 0;
  };
}

void RecordingClassifier::refuseAll(unsigned long code, int error) {
  refusal = [code, error](const Request& request) { return request.code == code ? error : 0; };
}

void RecordingClassifier::occupy(unsigned int port, std::uint32_t first, std::uint32_t last) {
  for (std::uint32_t index = first; index <= last; ++index) {
    acl_ioctl_port_entry entry{};
    const std::string text = std::to_string(static_cast<int>(port));
    text.copy(entry.port, sizeof(entry.port) - 1);
    std::strcpy(entry.selector, "somebody");
    std::strcpy(entry.actionList, "else");
    entry.kind = 1;
    entry.index = index;
    entries[{text, 1, index}] = entry;
  }
}

int RecordingClassifier::open(const char* bridgeName, const char* tableName) {
  bridge = bridgeName;
  table = tableName;
  ++opened;
  if (openError != 0) {
    errno = openError;
    return openFailure;
  }
  descriptor_ = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  return descriptor_;
}

int RecordingClassifier::answer(unsigned long code, void* record) {
  requests.push_back(recorded(code, record));
  const Request& request = requests.back();
  if (refusal) {
    const int error = refusal(request);
    if (error != 0) return refuse(error);
  }
  if (record == nullptr) return refuse(EFAULT);
  switch (code) {
    case ACL_ADD_PORT_ENTRY: {
      const auto entry = request.as<acl_ioctl_port_entry>();
      const Position position{entry.port, entry.kind, entry.index};
      return entries.emplace(position, entry).second ? 0 : refuse(EEXIST);
    }
    case ACL_DEL_PORT_ENTRY: {
      const auto entry = request.as<acl_ioctl_port_entry>();
      return entries.erase({entry.port, entry.kind, entry.index}) == 1 ? 0 : refuse(ENOENT);
    }
    case ACL_GET_PORT_ENTRY: {
      auto& entry = *static_cast<acl_ioctl_port_entry*>(record);
      const auto found = entries.find({entry.port, entry.kind, entry.index});
      if (found == entries.end()) return refuse(ENOENT);
      std::copy_n(found->second.selector, sizeof(entry.selector), entry.selector);
      std::copy_n(found->second.actionList, sizeof(entry.actionList), entry.actionList);
      return 0;
    }
    case ACL_GET_COUNTER: {
      auto& counter = *static_cast<acl_ioctl_counter*>(record);
      if (counter.name[0] == '\0' && !counters.contains("")) return refuse(ENOENT);
      counter.value = counters[counter.name];
      return 0;
    }
    default:
      return 0;
  }
}

const char* requestName(unsigned long code) {
  switch (code) {
    case ACL_ADD_SELECTOR:
      return "ADD_SELECTOR";
    case ACL_DEL_SELECTOR:
      return "DEL_SELECTOR";
    case ACL_ADD_CONDITION:
      return "ADD_CONDITION";
    case ACL_ADD_ACTION_LIST:
      return "ADD_ACTION_LIST";
    case ACL_DEL_ACTION_LIST:
      return "DEL_ACTION_LIST";
    case ACL_ADD_ACTION:
      return "ADD_ACTION";
    case ACL_ADD_PORT_ENTRY:
      return "ADD_PORT_ENTRY";
    case ACL_DEL_PORT_ENTRY:
      return "DEL_PORT_ENTRY";
    case ACL_GET_PORT_ENTRY:
      return "GET_PORT_ENTRY";
    case ACL_ADD_COUNTER:
      return "ADD_COUNTER";
    case ACL_DEL_COUNTER:
      return "DEL_COUNTER";
    case ACL_GET_COUNTER:
      return "GET_COUNTER";
    default:
      return "unknown request";
  }
}

std::string fullName(const std::string& shortName) {
  const std::string prefix = "l2cp:0x";
  if (shortName.rfind(prefix, 0) != 0) return shortName;
  const auto address = std::strtoull(shortName.c_str() + prefix.size(), nullptr, 16);
  // An entry is a 32-bit use count followed by the name.
  return reinterpret_cast<const char*>(address) + sizeof(std::int32_t);
}

}  // namespace support

extern "C" int br_open(const char* bridge, const char* table) {
  return support::RecordingClassifier::instance().open(bridge, table);
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const record = va_arg(arguments, void*);
  va_end(arguments);
  auto& classifier = support::RecordingClassifier::instance();
  if (_IOC_TYPE(request) == 'z' && classifier.owns(descriptor)) {
    return classifier.answer(request, record);
  }
  return static_cast<int>(syscall(SYS_ioctl, descriptor, request, record));
}

// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast, performance-no-int-to-ptr)
