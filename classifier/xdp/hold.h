#pragma once

/// What holds a program where it is attached.

#include <cstdint>
#include <string>

namespace classifier::xdp {

/// A link of the kernel's. The program goes with this object, and with the process however that
/// ends, unless it is left to a file.
class Hold {
 public:
  /// `file` is where it is kept already.
  explicit Hold(int link = -1, std::string file = {});
  ~Hold() { end(); }
  Hold(Hold&& other) noexcept;
  Hold& operator=(Hold&& other) noexcept;
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  /// The descriptor; negative for none, when it is the error number.
  int link() const { return link_; }
  /// Whether it has its program on any interface still.
  bool isAttached() const;
  /// The number of the interface on which a link of this type has a program; 0 if there is none.
  std::uint32_t interface(std::uint32_t type) const;
  /// The number of its program; 0 if that is not known.
  std::uint32_t program() const;

  /// Has a file below /sys/fs/bpf keep it, too, again if that has gone. 0 or a negative error
  /// number.
  int keepIn(const std::string& file);
  /// Leaves the program to the file, if there is one, when this object ends.
  void leave() { isLeft_ = true; }

 private:
  void end();

  int link_;
  std::string file_;
  bool isLeft_ = false;
};

/// What a file keeps.
Hold holdOf(const std::string& file);

/// Moves a descriptor to a number that `select` cannot watch, where the process may have such:
/// those that it can are left to sockets. The descriptor's number then.
int outOfTheWay(int descriptor);

}  // namespace classifier::xdp
