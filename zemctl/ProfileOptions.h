// ProfileOptions: a profile's settings as options of the command line, --apn to --wait-time.
#pragma once

#include <string>

#include <zem/ProfileParams.h>

namespace CLI {
class App;
}

namespace zemctl {

// Declares one option for each setting; a value that cannot be throws UsageError while parsing.
// params must outlive app.
void addProfileOptions(CLI::App& app, zem::ProfileParams& params);

// Declares --tech.
void addTechOption(CLI::App& app, zem::TechType& tech);

// Declares a word that must be given and is "on" or "off"; optionName as for CLI::App::add_option.
void addSwitchOption(CLI::App& app, const std::string& optionName, bool& value,
                     const std::string& help);

// Throws UsageError when a setting is given that 3GPP2 profiles do not have.
void requireSettingsOf(zem::TechType tech, const zem::ProfileParams& params);

}  // namespace zemctl
