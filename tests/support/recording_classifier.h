#pragma once

/// A stand-in for the classifier behind `br_open` and `ioctl`, for tests that look at the requests
/// themselves. Linking it replaces both functions for the whole test program: requests of type 'z'
/// on the descriptor that it handed out are recorded and answered here, other calls go to the
/// kernel.
///
/// By default every request is accepted that can be: not a null record, nor the read of a counter
/// without a name unless one was given a value. Port entries are remembered, so that a query
/// succeeds for those added and not deleted, and writes their names into the record. Counters can
/// be given values. Any request can be made to fail.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/acl_ioctl.h"

namespace support {

/// One request as it arrived.
struct Request {
  unsigned long code = 0;
  bool nullRecord = false;
  /// The record before it was answered: the bytes that the request's record type has.
  std::vector<unsigned char> bytes;
  /// For a payload condition, the byte behind each of its two addresses.
  std::optional<unsigned char> payloadMask;
  std::optional<unsigned char> payloadValue;

  template <class Record>
  Record as() const {
    Record record{};
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<unsigned char*>(&record));  // NOLINT
    return record;
  }
};

class RecordingClassifier {
 public:
  static RecordingClassifier& instance();

  /// Forgets everything: requests, entries, counters, refusals.
  void reset();

  std::vector<Request> requests;
  /// The requests since the last call of this.
  std::vector<Request> take();
  /// "ADD_SELECTOR", "GET_PORT_ENTRY" and so on, one for each request; queries can be left out.
  std::vector<std::string> names(bool withQueries = true) const;

  /// Asked before a request is carried out: an errno to refuse it with, or 0.
  std::function<int(const Request&)> refusal;
  /// Refuses the request with that position in `requests`, from 0.
  void refuseAt(std::size_t position, int error);
  /// Refuses all requests of that code.
  void refuseAll(unsigned long code, int error);

  /// `br_open`'s arguments, and the errno it fails with (0: it does not).
  std::string bridge;
  std::string table;
  unsigned int opened = 0;
  int openError = 0;
  /// What a failed `br_open` returns.
  int openFailure = -1;

  /// Values of counters by short name; counters that are not here have the value 0.
  std::map<std::string, std::uint64_t> counters;

  using Position = std::tuple<std::string, std::uint32_t, std::uint32_t>;
  /// Port entries by port text, kind and index.
  std::map<Position, acl_ioctl_port_entry> entries;
  /// Takes positions of a port as if by entries of somebody else.
  void occupy(unsigned int port, std::uint32_t first, std::uint32_t last);

  /// What `br_open` returned last, also once it has been closed; -1 before.
  int descriptor() const { return descriptor_; }
  bool owns(int descriptor) const { return descriptor == descriptor_; }
  int open(const char* bridgeName, const char* tableName);
  int answer(unsigned long code, void* record);

 private:
  int descriptor_ = -1;
};

const char* requestName(unsigned long code);

/// The full name behind a short name "l2cp:0x...", as the entity's table of names has it; a text
/// that is no short name is returned as it is.
std::string fullName(const std::string& shortName);

}  // namespace support
