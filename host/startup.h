#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The startup script: the running configuration on disk, in the command language. All functions
/// are for the thread of the RPC loop, or for the time before there is one.
namespace startup {

/// Writes lines as the script at `path`, so that there is one whole script at any moment, whatever
/// fails: they go to "PATH.new", which is synced and takes the name. What was there before is kept
/// as "PATH.old". Returns an empty text, or what failed; then there is no "PATH.new".
std::string save(const std::string& path, const std::vector<std::string>& lines);

/// What to do with a script that has lines that are not understood or refused.
enum class Strictness {
  skipLines,  ///< carry the others out
  nothing,    ///< return to the default settings without any line of it
};

struct Replay {
  std::size_t commands = 0;           ///< carried out; comments and "exit" do not count
  std::vector<std::string> problems;  ///< "PATH:LINE: what is wrong"
  /// Whether commands had been carried out before a refused one had all settings returned to their
  /// defaults. Profiles that were there before the script are gone, too.
  bool isUndone = false;
};

/// Carries out the script at `path`. A script that does not exist has no commands and no problems.
/// Where a mode cannot be entered, or its object not be made, the commands up to its "exit" are
/// skipped without a word of their own; lines among them that are no commands are named.
Replay replay(const std::string& path, Strictness strictness);

}  // namespace startup
