#pragma once

#include <string>

#include "platform/scriptingProductDefs.h"

/// A mode of the command line in which a line is entered: configuration level, or the sub-mode of
/// one object, which has the object's name and the mode from which it is entered.
class CliMode {
 public:
  /// The mode of that kind, name and parent: the same object for the same arguments, owned by the
  /// daemon and valid for the life of the process. A null name is the empty one.
  static CliMode* cliMode(scriptingProductDefs::CliModeId id, const char* name,
                          CliMode* parent = nullptr);

  CliMode(const CliMode&) = delete;
  CliMode& operator=(const CliMode&) = delete;

  scriptingProductDefs::CliModeId id() const { return id_; }
  const std::string& name() const { return name_; }
  /// Null at the outermost level.
  const CliMode* parent() const { return parent_; }

  CliMode(scriptingProductDefs::CliModeId id, std::string name, const CliMode* parent)
      : id_(id), name_(std::move(name)), parent_(parent) {}

 private:
  scriptingProductDefs::CliModeId id_;
  std::string name_;
  const CliMode* parent_;
};
