#pragma once

/// The files that keep programs on interfaces while no daemon runs. Each network namespace has a
/// folder of its own: interfaces have their numbers there.

#include <cstdint>
#include <set>
#include <string>

class KeptPrograms {
 public:
  /// Makes the folder for them if programs are to be kept. Throws ConfigError if that cannot be.
  explicit KeptPrograms(bool keeps);
  ~KeptPrograms();
  KeptPrograms(const KeptPrograms&) = delete;
  KeptPrograms& operator=(const KeptPrograms&) = delete;

  /// The file of the interface of this number; empty if programs are not to be kept. Makes the
  /// folder again should it have gone. Empty, too, and in the log, if another daemon was faster.
  std::string fileOf(std::uint32_t interface);

  /// Removes what has been kept but is none of these interfaces'; if programs are not to be kept,
  /// all. Those of a daemon that runs are left to it. Whether anything was there is in the log, and
  /// what cannot be removed.
  void removeOthers(const std::set<std::uint32_t>& interfaces);

 private:
  std::string nameOf(std::uint32_t interface) const;
  bool lock();
  bool holdsFolder() const;
  void makeFolderAgain();
  void removeLeftOvers() const;
  void sayThatItStays(const std::string& file, int error);

  /// Not any more if another daemon has taken the folder.
  bool keeps_;
  /// Empty if there is none.
  std::string folder_;
  /// Holds the folder as long as this object, or the process, lives; negative for none.
  int lock_ = -1;
  bool isSaid_ = false;
};
