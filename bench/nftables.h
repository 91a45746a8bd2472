#pragma once

/// What the kernel's packet filter is told, in process, and rules that do what a port's entries do.

#include <nftables/libnftables.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/switch.h"
#include "tests/support/frame_builder.h"

namespace bench {

/// Of the network namespace that the thread is in when this is made.
class Nftables {
 public:
  Nftables() : context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
    if (!context_) throw std::runtime_error("no context of libnftables");
    nft_ctx_buffer_error(context_.get());
    nft_ctx_buffer_output(context_.get());
  }

  /// All commands in one transaction. Returns what they print; throws what is wrong with them.
  std::string run(const std::string& commands) {
    if (nft_run_cmd_from_buffer(context_.get(), commands.c_str()) != 0) {
      throw std::runtime_error(nft_ctx_get_error_buffer(context_.get()));
    }
    return nft_ctx_get_output_buffer(context_.get());
  }

 private:
  struct Free {
    void operator()(nft_ctx* context) const { nft_ctx_free(context); }
  };
  std::unique_ptr<nft_ctx, Free> context_;
};

inline std::string hexadecimal(unsigned value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*x", digits, value);
  return text;
}

inline std::string addressText(const support::Mac& address) {
  std::string text;
  for (const std::uint8_t byte : address) {
    text += (text.empty() ? "" : ":") + hexadecimal(byte, 2);
  }
  return text;
}

/// Four counters with that prefix, and 0 to 3 behind.
inline std::string addCounters(const std::string& table, const std::string& prefix) {
  std::string text;
  for (int c = 0; c < 4; ++c)
    text += "add counter " + table + " " + prefix + std::to_string(c) + "\n";
  return text;
}

/// One entry as a rule of a chain ("netdev l2cp p1"). Of the conditions that should come first
/// which tells the entries apart: the others are then not looked at.
inline std::string addRule(const std::string& chain, const std::string& conditions,
                           const std::string& counters, const std::string& verdict) {
  std::string text = "add rule " + chain + " " + conditions;
  for (int c = 0; c < 4; ++c) text += " counter name \"" + counters + std::to_string(c) + "\"";
  return text + " " + verdict + "\n";
}

/// As the entries of a switch's port for the whole port.
inline std::string addRules(const std::string& chain, const std::string& verdict) {
  std::string text;
  for (int i = 0; i < entries; ++i) {
    const std::string conditions =
        "ether daddr " + addressText(group(i)) + " ether type 0x" + hexadecimal(etherType, 4);
    text += addRule(chain, conditions, "c", verdict);
  }
  return text;
}

}  // namespace bench
