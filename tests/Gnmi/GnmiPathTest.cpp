// Paths in text: what reads back as itself, what is refused and why, and the JSON and
// base64 text the model writes.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Gnmi/GnmiModel.h"
#include "Gnmi/GnmiPath.h"

namespace {

using Gnmi::Path;

TEST(GnmiPath, TextReadsBackAsTheSamePath) {
   const char* const texts[] = {
       "/",
       "/lldp/config/hello-timer",
       "/lldp/interfaces/interface[name=eth0]/neighbors/neighbor[id=*]/state",
       "/lldp/interfaces/interface[name=Ethernet1/2]/state",  // '/' inside a key
       "/a/tlv[type=127][oui=00-80-c2][oui-subtype=1]/state",
       "/a/b[k=x\\]y\\\\z]",  // escaped ']' and '\'
       "/a/b[k=]",            // an empty key value
       "openconfig:/lldp/state",
       "/openconfig-lldp:lldp/state",
   };
   for (const char* text : texts) {
      Path p;
      std::string error;
      ASSERT_TRUE(Gnmi::parsePath(text, p, error)) << text << ": " << error;
      EXPECT_EQ(Gnmi::toString(p), text);
      Path again;
      ASSERT_TRUE(Gnmi::parsePath(Gnmi::toString(p), again, error));
      EXPECT_EQ(again, p) << text;
   }
   Path p;
   std::string error;
   ASSERT_TRUE(Gnmi::parsePath("/lldp/interfaces/interface[name=Ethernet1/2]/state", p, error));
   ASSERT_EQ(p.elems.size(), 4u);
   EXPECT_EQ(p.elems[2].keys[0].second, "Ethernet1/2");
   ASSERT_TRUE(Gnmi::parsePath("openconfig:/lldp/state", p, error));
   EXPECT_EQ(p.origin, "openconfig");
   EXPECT_EQ(p.elems.size(), 2u);
   ASSERT_TRUE(Gnmi::parsePath("lldp/state", p, error));  // relative, as in a prefix's path
   EXPECT_EQ(p.elems.size(), 2u);
}

TEST(GnmiPath, MalformedTextIsRefusedWithTheReasonAndLeavesThePathAlone) {
   const std::pair<std::string, const char*> bad[] = {
       {"/lldp//state", "missing element name"},
       {"/lldp/", "ends with '/'"},
       {"/lldp/interfaces/interface[name=eth0", "missing ']'"},
       {"/lldp/interface[=eth0]", "missing key name"},
       {"/lldp/interface[name]", "missing '='"},
       {"/lldp/interface[name=a][name=b]", "given twice"},
       {"/lldp/x[k=a\\qb]", "unknown escape"},
       {"/lldp/x[k=a\\", "inside an escape"},
       {"/lldp/x]y", "unexpected ']'"},
       {"/lldp/st\x01"
        "ate",
        "control character"},
       {"/" + std::string(Gnmi::maxPathTextBytes, 'a'), "longer than"},
       {[] {
           std::string s;
           for (size_t i = 0; i <= Gnmi::maxPathElems; ++i) s += "/a";
           return s;
        }(),
        "more than 32 elements"},
       {"/x[a=1][b=1][c=1][d=1][e=1][f=1][g=1][h=1][i=1]", "more than 8 keys"},
   };
   for (const auto& [text, reason] : bad) {
      Path p;
      p.elems.push_back({"kept", {}});
      std::string error;
      EXPECT_FALSE(Gnmi::parsePath(text, p, error)) << text;
      EXPECT_NE(error.find(reason), std::string::npos) << text << " -> " << error;
      ASSERT_EQ(p.elems.size(), 1u) << text;
      EXPECT_EQ(p.elems[0].name, "kept");
   }
}

TEST(GnmiPath, MatchingJoiningAndValueText) {
   Path pattern, concrete, prefix, rel;
   std::string e;
   ASSERT_TRUE(Gnmi::parsePath("/i[name=*]/n[id=3]", pattern, e));
   ASSERT_TRUE(Gnmi::parsePath("/i[name=eth1]/n[id=3]", concrete, e));
   EXPECT_TRUE(Gnmi::matches(pattern, concrete));
   ASSERT_TRUE(Gnmi::parsePath("/i[name=eth1]/n[id=4]", concrete, e));
   EXPECT_FALSE(Gnmi::matches(pattern, concrete));
   ASSERT_TRUE(Gnmi::parsePath("openconfig:/i[name=eth1]", prefix, e));
   ASSERT_TRUE(Gnmi::parsePath("n[id=4]", rel, e));
   EXPECT_EQ(Gnmi::toString(Gnmi::join(prefix, rel)), "openconfig:/i[name=eth1]/n[id=4]");

   // JSON_IETF quotes 64-bit integers; both escape strings into valid JSON (bytes that are
   // not UTF-8 included).
   using Gnmi::Encoding;
   EXPECT_EQ(Gnmi::jsonValue(Gnmi::Value(uint64_t{30}), Encoding::JsonIetf), "\"30\"");
   EXPECT_EQ(Gnmi::jsonValue(Gnmi::Value(uint64_t{30}), Encoding::Json), "30");
   EXPECT_EQ(Gnmi::jsonValue(Gnmi::Value(int64_t{-2}), Encoding::JsonIetf), "\"-2\"");
   EXPECT_EQ(Gnmi::jsonValue(Gnmi::Value(true), Encoding::JsonIetf), "true");
   const std::string awkward("q\"b\\n\n\x01\xff\xc3\xa9", 10);
   const auto parsed = nlohmann::json::parse(Gnmi::jsonValue(Gnmi::Value(awkward), Encoding::Json));
   EXPECT_EQ(parsed.get<std::string>(), std::string("q\"b\\n\n\x01\xc3\xbf\xc3\xa9", 11));
   EXPECT_EQ(Gnmi::jsonValue(Gnmi::Value(std::vector<std::string>{"a", "b"}), Encoding::Json),
             "[\"a\",\"b\"]");

   for (std::string bytes : {std::string(), std::string("a"), std::string("ab"), std::string("abc"),
                             std::string("\x00\xff\x10\x80", 4)}) {
      std::string back;
      ASSERT_TRUE(Gnmi::unbase64(Gnmi::base64(bytes), back));
      EXPECT_EQ(back, bytes);
   }
   EXPECT_EQ(Gnmi::base64("abcd"), "YWJjZA==");
   std::string out;
   EXPECT_FALSE(Gnmi::unbase64("ab!c", out));
}

}  // namespace
