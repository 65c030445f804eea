// Waiting on other processes in tests: poll a condition instead of sleeping a fixed time,
// and read what a process wrote to a file.
#pragma once

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

namespace TestSupport {

// Polls `done` every 50 ms until it holds or `timeout` seconds pass; returns the seconds it
// took, or -1.
inline double waitFor(const std::function<bool()>& done, double timeout) {
   const auto start = std::chrono::steady_clock::now();
   for (;;) {
      const double waited =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      if (done()) return waited;
      if (waited > timeout) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
   }
}

inline std::string readFile(const std::string& path) {
   std::ifstream in(path);
   std::stringstream s;
   s << in.rdbuf();
   return s.str();
}

}  // namespace TestSupport
