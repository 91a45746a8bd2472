#pragma once

#include <unistd.h>

namespace support {

/// The process's files are used as somebody without rights, as long as this object lives. Someone
/// who is not root has none anyhow.
class AsNobody {
 public:
  AsNobody() : isDone_(before_ != 0 || seteuid(nobody) == 0) {}
  ~AsNobody() {
    if (before_ == 0 && isDone_ && seteuid(before_) != 0) _exit(1);
  }
  AsNobody(const AsNobody&) = delete;
  AsNobody& operator=(const AsNobody&) = delete;

  /// False where there is nobody, as in a namespace that knows no other user.
  bool isDone() const { return isDone_; }

 private:
  static constexpr uid_t nobody = 65534;

  const uid_t before_ = geteuid();
  const bool isDone_;
};

}  // namespace support
