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

TEST(LogFormat, ArgumentsPrintByTheirOwnTypeWhateverTheConversion) {
   // A 64-bit count beyond int range given to %d prints in full.
   EXPECT_EQ(fmt("%d", uint64_t(5000000000ull)), "5000000000");
   EXPECT_EQ(fmt("%d", UINT64_MAX), "18446744073709551615");
   EXPECT_EQ(fmt("%d %i", int8_t(-3), -7L), "-3 -7");
   EXPECT_EQ(fmt("%u %x %o", -1, 255u, 8), "18446744073709551615 ff 10");
   // Numbers given to a floating conversion and the reverse are converted.
   EXPECT_EQ(fmt("%f|%d", 3, 2.9), "3.000000|2");
   EXPECT_EQ(fmt("%s=%s", 42, 1.5), "42=1.5");
   EXPECT_EQ(fmt("%d", "text"), "text");
   EXPECT_EQ(fmt("%c%c", 'o', 'k'), "ok");
}

TEST(LogFormat, StringViewsPrintExactlyTheirBytes) {
   const char raw[] = "Ethernet12345";
   std::string_view sv(raw, 9);  // not terminated where it ends
   EXPECT_EQ(fmt("[%s]", sv), "[Ethernet1]");
   EXPECT_EQ(fmt("[%s]", std::string("abc")), "[abc]");
   EXPECT_EQ(fmt("[%s]", static_cast<const char*>(nullptr)), "[(null)]");
   // Interface identifiers and FixedStrings print through name() and value().
   EXPECT_EQ(fmt("%s", Wire::IntfId("Ethernet3")), "Ethernet3");
   Vel::FixedString<16> fs;
   fs.assign("port-7", 6);
   EXPECT_EQ(fmt("%s", fs), "port-7");
}

TEST(LogFormat, ControlBytesInStringsAreEscaped) {
   // A neighbour-supplied string must not be able to start a new log line.
   std::string_view sv("a\nb\0c\x7f", 6);
   EXPECT_EQ(fmt("%s", sv), "a\\x0ab\\x00c\\x7f");
}

TEST(LogFormat, FlagsWidthAndPrecision) {
   EXPECT_EQ(fmt("[%5s|%-5s|%.2s]", "ab", "cd", "efgh"), "[   ab|cd   |ef]");
   EXPECT_EQ(fmt("[%05d|%-4d|%+d]", 42, 7, 3), "[00042|7   |+3]");
   EXPECT_EQ(fmt("[%.3f|%8.2f]", 1.0 / 3, 2.5), "[0.333|    2.50]");
   EXPECT_EQ(fmt("[%*d|%-*s|%.*s]", 4, 1, 3, "x", 2, "abc"), "[   1|x  |ab]");
   EXPECT_EQ(fmt("[%#x|%lu|%lld|%zu]", 255, 1u, 2LL, size_t(3)), "[0xff|1|2|3]");
}

TEST(LogFormat, MalformedFormatsAndMissingArgumentsAreHarmless) {
   EXPECT_EQ(fmt("100%% sure"), "100% sure");
   EXPECT_EQ(fmt("a %s b %d c"), "a  b  c");  // missing arguments print nothing
   EXPECT_EQ(fmt("%s", "x", "ignored"), "x");
   int n = 0;
   // Unknown conversions (and %n, which never writes) stay as written and take no argument.
   EXPECT_EQ(fmt("%n %y %s", "z"), "%n %y z");
   EXPECT_EQ(fmt("%s%n", "a", &n), "a%n");
   EXPECT_EQ(n, 0);
   EXPECT_EQ(fmt("tail %"), "tail %");
   EXPECT_EQ(fmt("tail %-5l"), "tail %-5l");
   EXPECT_EQ(fmt("%999999999d", 1).size(), 255u);  // huge widths are bounded and cut
}

TEST(LogFormat, CutsAtTheBufferWithoutOverrunning) {
   char buf[8];
   buf[7] = 'X';
   const Vel::Log::Arg argv[] = {Vel::Log::Impl::toArg(123456789)};
   EXPECT_EQ(Vel::Log::formatArgs(buf, 6, "ab%dcd", argv, 1), 5u);
   EXPECT_STREQ(buf, "ab123");
   EXPECT_EQ(buf[7], 'X');
   EXPECT_EQ(Vel::Log::formatArgs(buf, 0, "ab", argv, 1), 0u);
   EXPECT_EQ(buf[7], 'X');
}

TEST(LogFormat, FormattingDoesNotAllocate) {
   char buf[128];
   std::string_view sv("00:1c:73:00:00:01");
   const Vel::Log::Arg argv[] = {Vel::Log::Impl::toArg(sv), Vel::Log::Impl::toArg(uint64_t(5)),
                                 Vel::Log::Impl::toArg(1.5)};
   TestSupport::AllocScope scope;
   Vel::Log::formatArgs(buf, sizeof buf, "%s %d %f %5.1s", argv, 3);
   EXPECT_EQ(scope.count(), 0u);
}

// --- Rate limits and destinations -----------------------------------------------------

const Vel::Log::Handle limited("TEST_LIMITED", 4, "limited %d", "x", "y", 10);
const Vel::Log::Handle unlimited("TEST_UNLIMITED", 6, "unlimited %d", "x", "y", 0);

TEST_F(LogTest, UnlimitedHandleEmitsEveryCall) {
   for (int i = 0; i < 3; ++i) EXPECT_TRUE(unlimited.log(i));
   ASSERT_EQ(messages.size(), 3u);
   EXPECT_EQ(messages[2].key, "TEST_UNLIMITED");
   EXPECT_EQ(messages[2].severity, 6);
   EXPECT_EQ(messages[2].text, "unlimited 2");
}

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
}

TEST_F(LogTest, ClockGoingBackReopensTheInterval) {
   EXPECT_TRUE(limited.log(1));
   fakeNow -= 100;
   EXPECT_TRUE(limited.log(2));
   EXPECT_FALSE(limited.log(3));
}

TEST_F(LogTest, ForegroundWritesKeyAndTextToStandardError) {
   Vel::Log::foregroundIs(true);
   testing::internal::CaptureStderr();
   unlimited.log(7);
   Vel::Log::foregroundIs(false);
   unlimited.log(8);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "TEST_UNLIMITED: unlimited 7\n");
   EXPECT_EQ(messages.size(), 2u);
}

TEST_F(LogTest, RemovedSinkReceivesNothing) {
   Vel::Log::sinkIs(nullptr);
   EXPECT_TRUE(unlimited.log(1));
   EXPECT_TRUE(messages.empty());
}

// --- Neighbour event handles ----------------------------------------------------------

constexpr const char* noAction = "no action required";

TEST_F(LogTest, NeighborEventTexts) {
   std::string_view chassis("00:1c:73:00:00:01");
   EXPECT_TRUE(Lldp::LLDP_NEIGHBOR_NEW.log(chassis, "Ethernet1", Wire::IntfId("Ethernet3")));
   EXPECT_EQ(lastText(),
             "LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet1 added on "
             "interface Ethernet3");
   EXPECT_EQ(messages.back().key, "LLDP_NEIGHBOR_NEW");
   EXPECT_EQ(messages.back().severity, 5);

   EXPECT_TRUE(Lldp::LLDP_NEIGHBOR_GONE.log(chassis, "Ethernet1", "Ethernet3"));
   EXPECT_EQ(lastText(),
             "Received a shutdown frame from LLDP neighbor with chassisId 00:1c:73:00:00:01 and "
             "portId Ethernet1 on interface Ethernet3");
   EXPECT_EQ(messages.back().key, "LLDP_NEIGHBOR_GONE");

   EXPECT_TRUE(Lldp::LLDP_NEIGHBOR_TIMEOUT.log(chassis, "Ethernet1", "Ethernet3"));
   EXPECT_EQ(lastText(),
             "LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet1 timed out on "
             "interface Ethernet3");
   EXPECT_EQ(messages.back().key, "LLDP_NEIGHBOR_TIMEOUT");

   EXPECT_TRUE(Lldp::LLDP_REMOTE_TABLES_CLEARED.log("admin", "console"));
   EXPECT_EQ(lastText(), "LLDP neighbor table cleared by admin on console");
}

TEST(LldpEvents, KeysSeveritiesExplanationsActionsAndLimits) {
   struct Expected {
      const Vel::Log::Handle& h;
      const char* key;
      int severity;
      const char* explanation;
      const char* action;
      double limit;
   };
   const Expected all[] = {
       {Lldp::LLDP_NEIGHBOR_NEW, "LLDP_NEIGHBOR_NEW", 5,
        "A new LLDP neighbor was added to the neighbor table.", noAction, 0},
       {Lldp::LLDP_NEIGHBOR_TIMEOUT, "LLDP_NEIGHBOR_TIMEOUT", 5,
        "An LLDP neighbor was deleted from the neighbor table since it timed out.", noAction, 0},
       {Lldp::LLDP_NEIGHBOR_GONE, "LLDP_NEIGHBOR_GONE", 5,
        "An LLDP neighbor was deleted from the neighbor table since an LLDPDU with a TTL of 0 "
        "was received from that neighbor.",
        noAction, 0},
       {Lldp::LLDP_RX_RATELIMIT, "LLDP_RX_RATELIMIT", 4,
        "The switch received too many LLDPDUs on a port in too short a period of time, so we "
        "dropped the most recent received LLDPDU.",
        "This could indicate a mis-configured neighbor, or a network loop.  Check the "
        "configuration of the neighbor connected to the interface and configure the LLDPDUs to "
        "be sent at a reasonable rate and ensure there are no network loops.",
        60},
       {Lldp::LLDP_REMOTE_TABLES_CLEARED, "LLDP_REMOTE_TABLES_CLEARED", 5,
        "The LLDP neighbor table was cleared by a CLI command.", noAction, 0},
   };
   for (const auto& e : all) {
      SCOPED_TRACE(e.key);
      EXPECT_STREQ(e.h.key(), e.key);
      EXPECT_EQ(e.h.severity(), e.severity);
      EXPECT_STREQ(e.h.explanation(), e.explanation);
      EXPECT_STREQ(e.h.recommendedAction(), e.action);
      EXPECT_EQ(e.h.rateLimit(), e.limit);
   }
   EXPECT_STREQ(Lldp::LLDP_RX_RATELIMIT.format(),
                "Exceeded Rx LLDPDU rate limit on %s (more than %d LLDPDUs in %f seconds)");
}

TEST_F(LogTest, RxRateLimitFormatsTheCountAndLogsOncePerMinute) {
   const auto& h = Lldp::LLDP_RX_RATELIMIT;
   EXPECT_TRUE(h.log(Wire::IntfId("Ethernet3"), uint64_t(10), 1.0));
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
