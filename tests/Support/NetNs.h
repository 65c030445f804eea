// Network namespaces for tests and benchmarks that send frames across a real link: a pair
// of fresh namespaces joined by a veth, removed again when the pair goes. Creating them
// needs root; callers skip with the pair's error() when it fails.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

// Two namespaces, "a" and "b", each holding one end of a veth that is up. Names are
// unique per process and per pair, so runs and tests do not collide.
class NetNsPair {
public:
   // An MTU of 0 leaves the veth's default.
   explicit NetNsPair(unsigned mtu = 0);
   ~NetNsPair();
   NetNsPair(const NetNsPair&) = delete;
   NetNsPair& operator=(const NetNsPair&) = delete;

   bool ok() const { return error_.empty(); }
   // Why the pair could not be made ("needs root to create network namespaces", ...).
   const std::string& error() const { return error_; }

   const std::string& nsA() const { return nsA_; }
   const std::string& nsB() const { return nsB_; }
   const std::string& intfA() const { return intfA_; }
   const std::string& intfB() const { return intfB_; }

private:
   std::string nsA_, nsB_, intfA_, intfB_;
   std::string error_;
   std::vector<std::string> created_;  // namespaces to remove
};

// Runs the calling thread in the named namespace while it lives (setns() is per thread);
// descriptors opened meanwhile stay in that namespace afterwards.
class NetNsScope {
public:
   explicit NetNsScope(const std::string& ns);
   ~NetNsScope();
   NetNsScope(const NetNsScope&) = delete;
   NetNsScope& operator=(const NetNsScope&) = delete;
   bool ok() const { return entered_; }

private:
   int saved_ = -1;
   bool entered_ = false;
};

// A plain AF_PACKET socket on an interface of a namespace, for sending arbitrary frames
// (other addresses, other EtherTypes, beyond our packet size) that the agent's own
// packet access would not build.
class RawSender {
public:
   RawSender(const std::string& ns, const std::string& intf);
   ~RawSender();
   RawSender(const RawSender&) = delete;
   RawSender& operator=(const RawSender&) = delete;
   bool ok() const { return fd_ >= 0; }
   // Sends one whole frame; false when the kernel refused it.
   bool send(const char* frame, size_t len);
   bool send(const std::vector<char>& frame) { return send(frame.data(), frame.size()); }

private:
   int fd_ = -1;
   int ifIndex_ = 0;
};

}  // namespace TestSupport
