#pragma once

/// The entries of a port as a reader sees them.

#include <string>

#include "cli/answer.h"
#include "host/control.h"

namespace cli {

/// The name of a fate, in its colour. Throws NotReached for one that is unknown here.
Value fateValue(control_fate fate);

/// What a condition looks at: "vlan", "destination", "ethertype", "payload".
std::string_view conditionName(const control_condition& condition);
/// What it wants to see there: "100", "01:80:c2:00:00:30/ff:ff:ff:ff:ff:f0", "0x88cc", "0x01".
std::string expectedText(const control_condition& condition);
/// What a frame has there, or nothing.
Value foundValue(const control_condition& condition, const control_field& found);

/// Names and VLAN of what an entry was made for, as far as they are known.
Value profileValue(const control_entry& entry);
Value protocolValue(const control_entry& entry);
Value attachedVlanValue(const control_entry& entry);

/// The name that the module gives to a counter, taken apart.
struct CounterName {
  std::string_view kind;  ///< "port", "vlan", "profile" or "protocol"; empty for another name
  std::string_view name;
  std::string_view rule;
};
CounterName counterName(std::string_view title);

}  // namespace cli
