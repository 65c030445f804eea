// Shell commands inside a test's network namespace: `ip` to make and change links and
// addresses, anything else (`bridge`, `sysctl`) through `ip netns exec`. Header only, so
// any test binary can use it without another library source.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace TestSupport {

// Runs a shell command; true when it exited with 0. `output` gets what it printed
// (standard output and error).
inline bool runCmd(const std::string& cmd, std::string* output = nullptr) {
   FILE* p = ::popen((cmd + " 2>&1").c_str(), "r");
   if (!p) return false;
   std::string out;
   char buf[512];
   size_t n;
   while ((n = std::fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
   const int status = ::pclose(p);
   if (output) *output = out;
   return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// True when the program is found on PATH (or is an existing absolute path).
inline bool haveProgram(const std::string& name) {
   return runCmd("command -v " + name + " >/dev/null");
}

// Runs `ip -n NS ARGS`.
inline bool ipIn(const std::string& ns, const std::string& args, std::string* output = nullptr) {
   return runCmd("ip -n " + ns + " " + args, output);
}

// Runs CMD inside the namespace.
inline bool runIn(const std::string& ns, const std::string& cmd, std::string* output = nullptr) {
   return runCmd("ip netns exec " + ns + " " + cmd, output);
}

}  // namespace TestSupport
