// Starting a program as a child process with its output in a file, and reaping it: for the
// tests and the benchmarks that run our programs (and their peers) for real.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

extern char** environ;

namespace TestSupport {

// Starts `args` (the program searched on PATH) with standard output to `outPath` and
// standard error to `errPath`, or to the same file when `errPath` is empty, in a process
// group of its own (so that it can be ended with everything it started); -1 when it could
// not start.
inline pid_t spawn(const std::vector<std::string>& args, const std::string& outPath,
                   const std::string& errPath = "") {
   std::vector<std::string> copy = args;
   std::vector<char*> argv;
   for (auto& a : copy) argv.push_back(a.data());
   argv.push_back(nullptr);
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init(&actions);
   posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                    0644);
   if (errPath.empty()) {
      posix_spawn_file_actions_adddup2(&actions, 1, 2);
   } else {
      posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0644);
   }
   posix_spawnattr_t attr;
   posix_spawnattr_init(&attr);
   posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);  // group 0: a new one
   pid_t pid = -1;
   if (posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ) != 0) pid = -1;
   posix_spawnattr_destroy(&attr);
   posix_spawn_file_actions_destroy(&actions);
   return pid;
}

// Reaps `pid`: its exit status, or 128 + the signal that ended it.
inline int reap(pid_t pid) {
   int status = 0;
   ::waitpid(pid, &status, 0);
   return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace TestSupport
