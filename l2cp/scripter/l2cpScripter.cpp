#include "l2cp/scripter/l2cpScripter.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

#include "l2cp/l2cp.h"
#include "platform/CliConfig.h"

namespace {

const bool added = [] {
  // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the daemon takes it over
  singleton<CliConfig>::instance().addScripter(new L2CPScripter);
  return true;
}();

std::string formatted(const char* format, unsigned int number) {
  char text[16];
  std::snprintf(text, sizeof(text), format, number);
  return text;
}

std::string protocolLine(const L2CP::Protocol& proto) {
  const bool anyMac = std::equal(std::begin(proto.mac), std::end(proto.mac), L2CP::m_anyMac);
  std::string text = "l2protocol \"" + proto.name + "\" mac ";
  text += anyMac ? "any" : L2CP::mac2str(proto.mac);
  if (proto.etherType != L2CP::m_noEtherType) {
    text += " ethertype " + formatted("0x%04x", proto.etherType);
    // Deliberate: a subtype without an EtherType is not written.
    if (proto.subType != L2CP::m_noSubType) {
      text += " subtype " + formatted("0x%02x", proto.subType);
    }
  }
  return text;
}

bool isScripted(const L2CP::Profile& profile, const L2CP::Settings& defaults,
                Scripter::ConfigMode mode) {
  const bool isDefault = defaults.profiles.contains(profile.name);
  switch (mode) {
    case Scripter::configDynamicProfiles:
      return profile.dynamic && !isDefault;
    case Scripter::configAll:
      return !profile.dynamic;
    case Scripter::configDifferences:
      break;
  }
  return !profile.dynamic && !isDefault;
}

}  // namespace

L2CPScripter::L2CPScripter() : Scripter("L2CPScripter") { order_ = 50; }

bool L2CPScripter::buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool /*verbose*/) {
  const L2CP::Settings defaults;
  const L2CP::Settings current = singleton<L2CP>::instance().settings;
  CliMode* const configuration = CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr);
  if (!singleton<CliConfig>::instance().checkProfileMode()) return true;

  if (mode != configDynamicProfiles) {
    for (const auto& [name, proto] : current.protocols) {
      // Deliberate: a built-in protocol is left out by its name, even if it has been changed.
      if (mode != configAll && defaults.protocols.contains(name)) continue;
      out.emplace_back(configuration, protocolLine(*proto), false, false);
    }
    if (!current.protocols.empty()) out.emplace_back(configuration, "", false, false);
  }

  for (const auto& [name, profile] : current.profiles) {
    if (!isScripted(*profile, defaults, mode)) continue;
    const bool quoted = name.find(' ') != std::string::npos;
    const std::string modeName = quoted ? "\"" + name + "\"" : name;
    CliMode* const profileMode = CliMode::cliMode(scriptingProductDefs::CLI_MODE_L2CP_PROFILE,
                                                  modeName.c_str(), configuration);
    for (const auto& [proto, rule] : profile->protocols) {
      out.emplace_back(profileMode, "protocol \"" + proto->name + "\" rule " + L2CP::rule2str(rule),
                       false, false);
    }
  }
  return true;
}
