#pragma once

#include <stdexcept>
#include <string>

/// A lock that cannot be had; the text says why.
class LockError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Another process has it.
class LockHeld : public LockError {
 public:
  using LockError::LockError;
};

/// Another process may have it: the file is there, as far as can be seen, and cannot be opened.
class LockUnknown : public LockError {
 public:
  using LockError::LockError;
};

/// Keeps a second daemon from running beside this one: a file that is locked as long as this object
/// lives, and however the process ends. It holds the number of the process that locked it last, and
/// is left behind: a file that is removed can be locked by one process while another makes it anew.
class LockFile {
 public:
  /// Makes the file, and the folders it is in, if they are not there. A file that may be read and
  /// not written, such as another user's, is locked and keeps the number that it has. Throws
  /// LockHeld, LockUnknown or, where there can be no lock, LockError.
  explicit LockFile(const std::string& path);
  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

 private:
  void open(const std::string& path);
  void writeHolder(const std::string& path) const;

  int descriptor_ = -1;
  bool isWritable_ = true;
};
