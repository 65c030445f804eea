// The configuration language: the operator's LLDP settings as lines of commands, the same
// lines whether they come from the configuration file, from `lldp configure` or from the
// control socket. They write Lldp::CliConfig and its per-port Lldp::CliPortConfig.
//
// Lines. `!` or `#` at the start of a word begins a comment that runs to the end of the
// line; blank and comment-only lines are ignored. `interface NAME` opens a block for that
// port (creating its CliPortConfig with defaults): the per-port commands that follow apply
// to it, indented or not, until a global command, another `interface` line or `exit`
// closes the block. A global command indented inside a block is refused.
// Keywords are case-sensitive. Text arguments (system name and description) are the rest
// of the line, or one double-quoted string in which `\"`, `\\` and `\xNN` are escapes.
//
// Global commands (a `no` form restores the default):
//    [no] lldp run
//    lldp timer 1..65535                     no lldp timer
//    lldp hold-time 1..65535                 no lldp hold-time
//    lldp timer reinitialization 1..20       no lldp timer reinitialization
//    [no] lldp tlv-select port-description | system-name | system-description |
//         system-capabilities | management-address | port-vlan | vlan-name |
//         link-aggregation | max-frame-size | power-via-mdi | med-network-policy
//    lldp system-name TEXT                   no lldp system-name          (at most 255 bytes)
//    lldp system-description TEXT            no lldp system-description   (at most 255 bytes)
//    [no] lldp receive packet tagged drop
//    lldp management-address all | interface NAME           no lldp management-address
//    lldp management-address vrf NAME                        no lldp management-address vrf
//    lldp neighbor-limit 1..1000000          no lldp neighbor-limit   (default 64 a port)
//    interface NAME                          no interface NAME (removes the port's settings)
// Per-port commands (after `interface NAME`):
//    [no] lldp transmit
//    [no] lldp receive
//    lldp receive rate-limit 1..4294967295 interval 0.001..3600    no lldp receive rate-limit
//    lldp ztp vlan 1..4094                   no lldp ztp vlan
//    lldp power-via-mdi fallback 1..100000   no lldp power-via-mdi fallback   (milliwatts)
//    lldp neighbor-limit 1..1000000          no lldp neighbor-limit   (back to the global)
//    lldp med network-policy APPLICATION vlan 0..4094 [untagged] [priority 0..7] [dscp 0..63]
//    no lldp med network-policy APPLICATION   (Config/NetworkPolicyLanguage.h)
// Interface names are 1..15 bytes without whitespace or control bytes, not starting with
// `!`, `#` or `"`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Records/LldpConfig.h"

namespace Config {

struct Error {
   int line = 0;  // 1-based
   std::string reason;
   // "line 3: lldp timer: 0 is out of range 1..65535"
   std::string message() const { return "line " + std::to_string(line) + ": " + reason; }
};

// Success, or the first bad line.
struct Result {
   std::optional<Error> error;
   bool ok() const { return !error; }
   explicit operator bool() const { return ok(); }
};

// Applies the lines to `target` as they stand, on top of what is configured. Every line
// is checked first: if one is bad, nothing changes and the first bad line is returned.
Result apply(const std::vector<std::string>& lines, Lldp::CliConfig& target);

// A whole configuration file that replaces the configuration in force: what the file
// does not set returns to its default and ports the file does not name are removed. Only
// attributes that differ are written, so reactors hear of real changes only. A bad file
// changes nothing.
Result load(const std::string& text, Lldp::CliConfig& target);

// The configuration in force in the language: every setting that differs from its default
// and every configured port, per-port lines indented. Loading the text reproduces the
// configuration exactly.
std::string render(const Lldp::CliConfig& config);

// The usage of every command and its `no` form, as error messages quote them: what the
// manual page must describe.
std::vector<std::string> usages();

// Splits text into lines (on '\n', dropping a '\r' before it).
std::vector<std::string> splitLines(const std::string& text);

}  // namespace Config
