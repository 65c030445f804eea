// Trace levels, settings and ring buffer; feature toggle lookup.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "Framework/Toggle.h"
#include "Framework/Trace.h"

namespace {

Vel::Trace::Handle alpha("TestAlpha");
Vel::Trace::Handle alphabet("TestAlphabet");
Vel::Trace::Handle beta("TestBeta");

int formatted = 0;
int sideEffect() {
   return ++formatted;
}

struct TraceTest : ::testing::Test {
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::ringClear();
   }
   void TearDown() override { Vel::Trace::configure(""); }
};

TEST_F(TraceTest, DisabledLevelsFormatNothingAndTheRingKeepsTheMostRecentLines) {
   ASSERT_TRUE(Vel::Trace::configure("TestAlpha/0-3,TestBeta/2"));
   formatted = 0;
   VEL_TRACE(alpha, 4, "never " << sideEffect());
   EXPECT_EQ(formatted, 0);
   VEL_TRACE(alpha, 3, "value " << sideEffect());
   EXPECT_EQ(formatted, 1);
   auto ring = Vel::Trace::ringSnapshot();
   ASSERT_EQ(ring.size(), 1u);
   EXPECT_EQ(ring[0].text, "value 1");
   EXPECT_STREQ(ring[0].handle, "TestAlpha");
   EXPECT_EQ(ring[0].level, 3);

   for (int i = 0; i < 5000; ++i) VEL_TRACE(beta, 2, "line " << i);
   ring = Vel::Trace::ringSnapshot();
   ASSERT_EQ(ring.size(), 4096u);
   EXPECT_EQ(ring.front().text, "line 904");
   EXPECT_EQ(ring.back().text, "line 4999");
}

TEST_F(TraceTest, SettingsSelectHandlesAndLevels) {
   ASSERT_TRUE(Vel::Trace::configure("TestAlpha*/06,TestBeta"));
   EXPECT_TRUE(alpha.enabled(0));
   EXPECT_TRUE(alphabet.enabled(6));
   EXPECT_FALSE(alphabet.enabled(5));
   for (int l = 0; l <= 9; ++l) EXPECT_TRUE(beta.enabled(l));
   // Later entries win.
   ASSERT_TRUE(Vel::Trace::configure("*/0,TestBeta/9"));
   EXPECT_TRUE(alpha.enabled(0));
   EXPECT_FALSE(beta.enabled(0));
   EXPECT_TRUE(beta.enabled(9));
   // A malformed setting changes nothing.
   EXPECT_FALSE(Vel::Trace::configure("TestAlpha/x"));
   EXPECT_FALSE(Vel::Trace::configure("TestAlpha/5-2"));
   EXPECT_FALSE(Vel::Trace::configure("/3"));
   EXPECT_TRUE(beta.enabled(9));
   EXPECT_FALSE(alpha.enabled(9));
}

TEST(Toggle, MissingFileNameOrBadValueGivesTheDefault) {
   const auto dir =
       std::filesystem::temp_directory_path() / ("toggles-" + std::to_string(getpid()));
   std::filesystem::create_directories(dir);
   Vel::toggleDirIs(dir.string());
   const auto write = [&](const char* text) { std::ofstream(dir / "Lldp.json") << text; };
   EXPECT_TRUE(getToggleState("LldpTxVlanNames", "Lldp.json", true));
   EXPECT_FALSE(getToggleState("LldpTxVlanNames", "Lldp.json", false));
   write(R"({"LldpTxVlanNames": false, "LldpBootVlanTlv": "off"})");
   EXPECT_FALSE(getToggleState("LldpTxVlanNames", "Lldp.json", true));
   EXPECT_TRUE(getToggleState("LldpBootVlanTlv", "Lldp.json", true));
   EXPECT_TRUE(getToggleState("LldpTxValuesConfig", "Lldp.json", true));
   write("{not json");
   EXPECT_TRUE(getToggleState("LldpTxVlanNames", "Lldp.json", true));
   std::filesystem::remove_all(dir);
}

}  // namespace
