// What the configuration language's commands are made of, for the files that define them.
// ConfigLanguage.cpp holds the parser and the table of forms, ConfigWords.cpp the words
// and their values, ConfigCoreForms.cpp the core commands; commands of a feature of their
// own (external TLVs, LLDP bypass) live beside them and plug into the table here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Records/LldpConfig.h"

namespace Config::detail {

using Lldp::CliConfig;
using Lldp::CliPortConfig;

// One word of a line.
struct Token {
   std::string text;  // unescaped for a quoted word
   size_t begin = 0;  // position in the line, quotes included
   size_t end = 0;
   bool quoted = false;
};

// The words after a command's keywords.
struct Args {
   std::string_view line;
   const Token* first;
   size_t count;
   const std::string& operator[](size_t i) const { return first[i].text; }
};

using Op = std::function<void(CliConfig&)>;
using PortOp = std::function<void(CliPortConfig&)>;

// What a command builds: an error, or the change to make.
struct Built {
   std::string error;
   Op op;
   PortOp portOp;
};
inline Built fail(std::string e) {
   return Built{std::move(e), nullptr, nullptr};
}
inline Built global(Op op) {
   return Built{{}, std::move(op), nullptr};
}
inline Built port(PortOp op) {
   return Built{{}, nullptr, std::move(op)};
}
inline Built either(Op op, PortOp portOp) {
   return Built{{}, std::move(op), std::move(portOp)};
}

// Where a command applies: globally, to the port of the open interface block, or (a
// setting with a global value and a per-port override) to the port inside a block and
// globally outside one.
enum class Scope : uint8_t { global, port, either };
constexpr int textArg = -1;  // the rest of the line, at least one word

// One command and its `no` form, each with the number of arguments that follow the
// keywords and a builder; a form without a builder does not exist.
struct Form {
   Scope scope;
   std::vector<std::string_view> words;
   int yesArgs;
   const char* yesUsage;
   std::function<Built(const Args&)> yes;
   int noArgs;
   const char* noUsage;
   std::function<Built(const Args&)> no;
};

// Every command of the language (ConfigLanguage.cpp), e.g. for listing its keywords.
const std::vector<Form>& forms();

// Records at their defaults, to read what a `no` form restores.
const CliConfig& defaults();
const CliPortConfig& portDefaults();

// Words (ConfigWords.cpp).
bool isSpace(char c);
// Splits a line into words, stopping at a comment. Returns an error text, empty if none.
std::string tokenize(std::string_view line, std::vector<Token>& out);
std::string joinWords(const std::vector<std::string_view>& words);
// A decimal number in lo..hi into `out`; returns an error text, empty if none.
std::string parseNumber(const std::string& s, uint64_t lo, uint64_t hi, uint64_t& out);
// An interface (or VRF) name as Linux takes it; `what` names it in the error.
std::string checkName(const char* what, const std::string& s);
// The rest of the line as text: one quoted word, or the words as written.
std::string parseText(const Args& a, std::string& out);
// Text as an argument that reads back as itself, quoted only when it must be.
std::string textArgument(std::string_view s);
// The shortest decimal text that reads back as `v`.
std::string shortest(double v);

using LineOut = std::function<void(const std::string&)>;

// The core commands and LLDP-MED network policies (ConfigCoreForms.cpp).
void addCoreForms(std::vector<Form>& forms);
void addNetworkPolicyForms(std::vector<Form>& forms);
void renderCore(const CliConfig& c, const LineOut& line);
void renderPortCore(const CliPortConfig& p, const LineOut& line);
void renderPortNetworkPolicies(const CliPortConfig& p, const LineOut& line);

// External TLVs and LLDP bypass (ConfigTlvAndBypass.cpp).
void addTlvAndBypassForms(std::vector<Form>& forms);
void renderTlvAndBypass(const CliConfig& c, const LineOut& line);
void renderPortTlvAndBypass(const CliPortConfig& p, const LineOut& line);

// The limit on all ports' neighbours together (ConfigNeighborLimit.cpp).
void addNeighborLimitForms(std::vector<Form>& forms);
void renderNeighborLimit(const CliConfig& c, const LineOut& line);
// Neighbour classification and telephone bypass (ConfigClassification.cpp).
void addClassificationForms(std::vector<Form>& forms);
void renderClassification(const CliConfig& c, const LineOut& line);
void renderPortClassification(const CliPortConfig& p, const LineOut& line);

}  // namespace Config::detail
