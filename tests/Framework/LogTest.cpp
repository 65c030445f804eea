// Log facility: typed formatting, rate limits, destinations, and the neighbour event handles.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Vel/Types.h"
#include "Framework/Wire/IntfId.h"
#include "Lldp/LldpEvents.h"
#include "tests/Support/AllocCounter.h"

namespace {

double fakeNow = 0;
double fakeClock() {
   return fakeNow;
}

struct LogTest : ::testing::Test {
   std::vector<Vel::Log::Message> messages;

   void SetUp() override {
      // Every test starts far beyond anything an earlier one logged, so the process-wide
      // handles' rate limits start afresh.
      static double base = 0;
      base += 1e6;
      fakeNow = base;
      Vel::Log::clockIs(fakeClock);
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { messages.push_back(m); });
   }
   void TearDown() override {
      Vel::Log::sinkIs(nullptr);
      Vel::Log::clockIs(nullptr);
      Vel::Log::foregroundIs(false);
   }

   std::string lastText() const { return messages.empty() ? "" : messages.back().text; }
};

template <typename... Args>
std::string fmt(const char* format, const Args&... args) {
   const Vel::Log::Arg argv[sizeof...(Args) + 1] = {Vel::Log::Impl::toArg(args)...};
   char buf[256];
   Vel::Log::formatArgs(buf, sizeof buf, format, argv, sizeof...(Args));
   return buf;
}

// --- Formatting ------------------------------------------------------------------------

TEST(LogFormat, ConversionsFlagsStringsAndMalformedFormats) {
   const char raw[] = "Ethernet12345";
   Vel::FixedString<16> fs;
   fs.assign("port-7", 6);
   int n = 0;
   const struct {
      std::string got;
      const char* want;
   } cases[] = {
       // Arguments print by their own type whatever the conversion: a 64-bit count beyond
       // int range given to %d prints in full, numbers cross between integer and floating.
       {fmt("%d", uint64_t(5000000000ull)), "5000000000"},
       {fmt("%d", UINT64_MAX), "18446744073709551615"},
       {fmt("%d %i", int8_t(-3), -7L), "-3 -7"},
       {fmt("%u %x %o", -1, 255u, 8), "18446744073709551615 ff 10"},
       {fmt("%f|%d", 3, 2.9), "3.000000|2"},
       {fmt("%s=%s", 42, 1.5), "42=1.5"},
       {fmt("%d", "text"), "text"},
       {fmt("%c%c", 'o', 'k'), "ok"},
       // String views print exactly their bytes, not up to a terminator.
       {fmt("[%s]", std::string_view(raw, 9)), "[Ethernet1]"},
       {fmt("[%s]", std::string("abc")), "[abc]"},
       {fmt("[%s]", static_cast<const char*>(nullptr)), "[(null)]"},
       {fmt("%s", Wire::IntfId("Ethernet3")), "Ethernet3"},
       {fmt("%s", fs), "port-7"},
       // A neighbour-supplied string must not be able to start a new log line.
       {fmt("%s", std::string_view("a\nb\0c\x7f", 6)), "a\\x0ab\\x00c\\x7f"},
       {fmt("[%5s|%-5s|%.2s]", "ab", "cd", "efgh"), "[   ab|cd   |ef]"},
       {fmt("[%05d|%-4d|%+d]", 42, 7, 3), "[00042|7   |+3]"},
       {fmt("[%.3f|%8.2f]", 1.0 / 3, 2.5), "[0.333|    2.50]"},
       {fmt("[%*d|%-*s|%.*s]", 4, 1, 3, "x", 2, "abc"), "[   1|x  |ab]"},
       {fmt("[%#x|%lu|%lld|%zu]", 255, 1u, 2LL, size_t(3)), "[0xff|1|2|3]"},
       // Malformed formats and missing arguments are harmless: missing arguments print
       // nothing, unknown conversions (and %n, which never writes) stay as written.
       {fmt("100%% sure"), "100% sure"},
       {fmt("a %s b %d c"), "a  b  c"},
       {fmt("%s", "x", "ignored"), "x"},
       {fmt("%n %y %s", "z"), "%n %y z"},
       {fmt("%s%n", "a", &n), "a%n"},
       {fmt("tail %"), "tail %"},
       {fmt("tail %-5l"), "tail %-5l"},
   };
   for (const auto& c : cases) EXPECT_EQ(c.got, c.want);
   EXPECT_EQ(n, 0);
   EXPECT_EQ(fmt("%999999999d", 1).size(), 255u);  // huge widths are bounded and cut
}

TEST(LogFormat, CutsAtTheBufferWithoutOverrunningOrAllocating) {
   char buf[8];
   buf[7] = 'X';
   const Vel::Log::Arg argv[] = {Vel::Log::Impl::toArg(123456789)};
   EXPECT_EQ(Vel::Log::formatArgs(buf, 6, "ab%dcd", argv, 1), 5u);
   EXPECT_STREQ(buf, "ab123");
   EXPECT_EQ(buf[7], 'X');
   EXPECT_EQ(Vel::Log::formatArgs(buf, 0, "ab", argv, 1), 0u);
   EXPECT_EQ(buf[7], 'X');

   char big[128];
   std::string_view sv("00:1c:73:00:00:01");
   const Vel::Log::Arg args[] = {Vel::Log::Impl::toArg(sv), Vel::Log::Impl::toArg(uint64_t(5)),
                                 Vel::Log::Impl::toArg(1.5)};
   TestSupport::AllocScope scope;
   Vel::Log::formatArgs(big, sizeof big, "%s %d %f %5.1s", args, 3);
   EXPECT_EQ(scope.count(), 0u);
}

// --- Rate limits and destinations -----------------------------------------------------

const Vel::Log::Handle limited("TEST_LIMITED", 4, "limited %d", "x", "y", 10);
const Vel::Log::Handle unlimited("TEST_UNLIMITED", 6, "unlimited %d", "x", "y", 0);

TEST_F(LogTest, RateLimitSuppressesWithinTheIntervalAndCountsWhatItDropped) {
   EXPECT_TRUE(limited.log(1));
   fakeNow += 9.999;
   EXPECT_FALSE(limited.log(2));
   fakeNow += 0.001;  // exactly one interval after the last emitted message
   EXPECT_TRUE(limited.log(3));
   EXPECT_EQ(lastText(), "limited 3 (1 similar message suppressed)");
   // The interval runs from the last emitted message, not the last call.
   for (int i = 0; i < 4; ++i) {
      fakeNow += 2;
      EXPECT_FALSE(limited.log(4));
   }
   fakeNow += 2;
   EXPECT_TRUE(limited.log(5));
   EXPECT_EQ(lastText(), "limited 5 (4 similar messages suppressed)");
   // The count starts again after being reported.
   fakeNow += 10;
   EXPECT_TRUE(limited.log(6));
   EXPECT_EQ(lastText(), "limited 6");
   EXPECT_EQ(messages.size(), 4u);
   // The clock going back reopens the interval.
   fakeNow -= 100;
   EXPECT_TRUE(limited.log(7));
   EXPECT_FALSE(limited.log(8));
}

TEST_F(LogTest, ForegroundAlsoWritesKeyAndTextToStandardError) {
   Vel::Log::foregroundIs(true);
   testing::internal::CaptureStderr();
   unlimited.log(7);
   Vel::Log::foregroundIs(false);
   unlimited.log(8);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "TEST_UNLIMITED: unlimited 7\n");
   ASSERT_EQ(messages.size(), 2u);
   EXPECT_EQ(messages[0].text, "unlimited 7");

   Vel::Log::sinkIs(nullptr);  // a removed sink receives nothing
   EXPECT_TRUE(unlimited.log(9));
   EXPECT_EQ(messages.size(), 2u);
}

// --- Neighbour event handles ----------------------------------------------------------

TEST_F(LogTest, NeighborEventKeysSeveritiesAndTexts) {
   const std::string who = "LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet1";
   const struct {
      const Vel::Log::Handle& h;
      const char* key;
      std::string text;
   } events[] = {
       {Lldp::LLDP_NEIGHBOR_NEW, "LLDP_NEIGHBOR_NEW", who + " added on interface Ethernet3"},
       {Lldp::LLDP_NEIGHBOR_GONE, "LLDP_NEIGHBOR_GONE",
        "Received a shutdown frame from " + who + " on interface Ethernet3"},
       {Lldp::LLDP_NEIGHBOR_TIMEOUT, "LLDP_NEIGHBOR_TIMEOUT",
        who + " timed out on interface Ethernet3"},
   };
   for (const auto& e : events) {
      SCOPED_TRACE(e.key);
      // Not rate limited: the same event right after the first is logged too.
      for (int i = 0; i < 2; ++i) {
         EXPECT_TRUE(e.h.log(std::string_view("00:1c:73:00:00:01"), "Ethernet1",
                             Wire::IntfId("Ethernet3")));
      }
      EXPECT_EQ(messages.back().key, e.key);
      EXPECT_EQ(messages.back().severity, 5);
      EXPECT_EQ(lastText(), e.text);
   }
   EXPECT_EQ(messages.size(), 6u);
   // Its key and text are checked where the table is cleared.
   EXPECT_TRUE(Lldp::LLDP_REMOTE_TABLES_CLEARED.log("admin", "console"));
   EXPECT_EQ(messages.back().severity, 5);
}

TEST_F(LogTest, RxRateLimitFormatsTheCountAndLogsOncePerMinute) {
   const auto& h = Lldp::LLDP_RX_RATELIMIT;
   EXPECT_TRUE(h.log(Wire::IntfId("Ethernet3"), uint64_t(10), 1.0));
   EXPECT_EQ(messages.back().key, "LLDP_RX_RATELIMIT");
   EXPECT_EQ(lastText(),
             "Exceeded Rx LLDPDU rate limit on Ethernet3 (more than 10 LLDPDUs in 1.000000 "
             "seconds)");
   EXPECT_EQ(messages.back().severity, 4);
   fakeNow += 1;
   EXPECT_FALSE(h.log("Ethernet3", uint64_t(10), 1.0));
   fakeNow += 58.5;
   EXPECT_FALSE(h.log("Ethernet4", uint64_t(10), 1.0));
   EXPECT_EQ(messages.size(), 1u);
   fakeNow += 0.5;  // 60 s after the first
   EXPECT_TRUE(h.log("Ethernet4", uint64_t(5000000000ull), 0.5));
   EXPECT_EQ(lastText(),
             "Exceeded Rx LLDPDU rate limit on Ethernet4 (more than 5000000000 LLDPDUs in "
             "0.500000 seconds) (2 similar messages suppressed)");
   EXPECT_EQ(messages.size(), 2u);
}

}  // namespace
