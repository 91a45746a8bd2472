#pragma once

/// Facts of the product's command line that scripters share.
namespace scriptingProductDefs {

/// Modes of the command line, by the commands that they accept.
enum CliModeId : int {
  CLI_MODE_CONF = 1,
  CLI_MODE_L2CP_PROFILE = 2,
  CLI_MODE_VLAN_PROFILE = 3,
  CLI_MODE_SERVICE_PROFILE = 4,
};

}  // namespace scriptingProductDefs
