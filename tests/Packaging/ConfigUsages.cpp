// Prints the usage of every command of the configuration language, one per line, for the
// test that finds each in lldp-agent.conf(5).
#include <iostream>

#include "Config/ConfigLanguage.h"

int main() {
   for (const auto& u : Config::usages()) std::cout << u << '\n';
   // The configuration file's own line, outside the language.
   std::cout << "vlan ID name NAME\n";
}
