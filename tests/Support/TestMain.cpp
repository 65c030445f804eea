// The tests' main: GoogleTest's, plus a recap of every failed check at the very end of the
// output. A failing test that runs daemons prints their logs after its checks failed, and a
// log of thousands of lines pushes the checks themselves out of the tail people (and CI)
// read first; the recap repeats each failure's place and message, cut short, below it all.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

class FailureRecap : public testing::EmptyTestEventListener {
public:
   // The test's name is taken here: asking GoogleTest for the current test while it reports
   // a result would wait on its own lock.
   void OnTestStart(const testing::TestInfo& t) override {
      test_ = std::string(t.test_suite_name()) + "." + t.name();
   }
   void OnTestEnd(const testing::TestInfo&) override { test_ = "(outside a test)"; }
   void OnTestPartResult(const testing::TestPartResult& r) override {
      if (!r.failed()) return;
      std::string line = test_ + " at " + std::string(r.file_name() ? r.file_name() : "?") + ":" +
                         std::to_string(r.line_number()) + ": ";
      std::string msg = r.message();
      if (msg.size() > kMessageMax) msg = msg.substr(0, kMessageMax) + " [...]";
      failures_.push_back(line + msg);
   }
   void OnTestProgramEnd(const testing::UnitTest&) override {
      if (failures_.empty()) return;
      std::printf("\nFailed checks (%zu):\n", failures_.size());
      size_t shown = 0;
      for (const std::string& f : failures_) {
         if (++shown > kShownMax) {
            std::printf("... and %zu more\n", failures_.size() - kShownMax);
            break;
         }
         std::printf("- %s\n", f.c_str());
      }
      std::fflush(stdout);
   }

private:
   static constexpr size_t kMessageMax = 600, kShownMax = 20;
   std::string test_ = "(outside a test)";
   std::vector<std::string> failures_;
};

}  // namespace

int main(int argc, char** argv) {
   testing::InitGoogleTest(&argc, argv);
   testing::UnitTest::GetInstance()->listeners().Append(new FailureRecap);
   return RUN_ALL_TESTS();
}
