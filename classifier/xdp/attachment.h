#pragma once

/// The programs on an interface.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "classifier/xdp/filter.h"
#include "classifier/xdp/hold.h"

namespace classifier::xdp {

/// Descriptors of what is attached to an interface.
struct Programs {
  int classify;  ///< where frames arrive
  int keep;      ///< behind, for what is handed to the machine itself
};

enum class Mode {
  native,   ///< in the driver
  generic,  ///< in the kernel's own stack, with every driver
};

/// "native" or "generic".
const char* text(Mode mode);

/// Why a program cannot be where it should, and what to do about it, in one line.
struct Problem {
  std::string text;
};

/// Ends with this object, and with the process however that ends, unless it is kept.
class Attachment {
 public:
  struct Options {
    Mode mode = Mode::generic;
    /// Whether a program of somebody else's gives way.
    bool replacesOthers = false;
    /// A file below /sys/fs/bpf that keeps the program on the interface without a process; empty
    /// for none. If it is there, its program gives way to this one, without a frame in between that
    /// meets none.
    std::string file = {};
  };

  static std::variant<Attachment, Problem> make(const Programs& programs, std::uint32_t interface,
                                                const Options& options);
  /// The mode of the program that a file keeps on the interface; nothing if it keeps none.
  static std::optional<Mode> keptMode(const std::string& file, std::uint32_t interface);

  /// Where the filter is kept that belongs to the program in the file.
  static std::string filterFile(const std::string& file);
  /// Whether the file keeps a program on no interface any more.
  static bool keepsNothing(const std::string& file);
  /// Removes the file and what it keeps. 0 or what the kernel says.
  static int removeKept(const std::string& file);

  Mode mode() const { return mode_; }
  /// Whether the programs are on the interface still.
  bool isOn(std::uint32_t interface) const;
  /// Has the program on the interface in another mode. Frames that come in between meet none. Why
  /// that cannot be, if it cannot: then none is there.
  std::optional<Problem> changeMode(const Programs& programs, std::uint32_t interface,
                                    const Options& options);
  /// Has the file keep the program, again if that has gone.
  void keepIn(const std::string& file);
  /// Why the file does not keep the program; empty if it does, or is not to.
  const std::string& keepingProblem() const { return keepingProblem_; }
  /// Leaves the program where it is when this object ends, if it has a file.
  void keep();

 private:
  Attachment(Filter filter, Hold link, Mode mode);
  static std::optional<Attachment> takeOver(const Programs& programs, std::uint32_t interface,
                                            const Options& options);

  /// Goes after what marks frames for it.
  Filter filter_;
  Hold link_;
  Mode mode_;
  std::string keepingProblem_;
};

}  // namespace classifier::xdp
