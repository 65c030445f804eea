#include "Daemon/MirrorClient.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Daemon/ControlSocket.h"
#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpMirrorCodec.h"

namespace Daemon {

namespace {

Vel::Trace::Handle traceMirror("Mirror");

constexpr size_t readChunk = 64 * 1024;
constexpr int chunksPerTurn = 16;
// No message of the stream comes near this; a peer that sends more without a newline is
// not an agent.
constexpr size_t maxLineBytes = size_t(16) << 20;

constinit const Vel::Log::Handle LLDP_MIRROR_PEER_PROBLEM(
    "LLDP_MIRROR_PEER_PROBLEM", 4, "Standby cannot mirror the active LLDP agent at %s: %s",
    "The standby LLDP agent could not get, or lost, the active agent's status stream; it keeps "
    "trying.",
    "Check that --peer-socket names the control socket of the active lldp-agent and that no "
    "other standby mirrors it.",
    60);

constinit const Vel::Log::Handle LLDP_MIRROR_IN_SYNC(
    "LLDP_MIRROR_IN_SYNC", 5, "Standby in sync with the active LLDP agent at %s: %d neighbors",
    "The standby LLDP agent holds a complete copy of the active agent's neighbor table.",
    "no action required", 0);

std::string excerpt(std::string_view bytes) {
   return Vel::printableBytes(bytes.substr(0, 48)) + (bytes.size() > 48 ? "..." : "");
}

}  // namespace

MirrorClient::MirrorClient(Options options, Vel::Ptr<Lldp::Agent::StandbyLldpStatusDirSm> dirSm,
                           Lldp::RedundancyStatus::Ptr redundancy,
                           Vel::Ptr<Lldp::Agent::RedundancyStatusSm> redundancySm)
    : options_(std::move(options)),
      dirSm_(std::move(dirSm)),
      redundancy_(std::move(redundancy)),
      redundancySm_(std::move(redundancySm)) {
   retryClock_.handlerIs([this] { doConnect(); });
   answerClock_.handlerIs([this] {
      doRetry(Lldp::MirrorStateNames::mirrorBadPeer,
              "no answer to the mirror request within " +
                  std::to_string(int(options_.answerTimeout)) + " s; is it an LLDP agent?");
   });
}

MirrorClient::~MirrorClient() {
   doClose();
   for (int f : received_) close(f);
   for (auto& [name, f] : listeners_) close(f);
}

int MirrorClient::takeListener(const std::string& name) {
   auto it = listeners_.find(name);
   if (it == listeners_.end()) return -1;
   const int fd = it->second;
   listeners_.erase(it);
   return fd;
}

void MirrorClient::start() {
   running_ = true;
   redundancy_->peerSocketIs(options_.peerSocket);
   doConnect();
}

void MirrorClient::stop() {
   running_ = false;
   doClose();
   retryClock_.timeMinIs(Vel::never);
   redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorNotMirroring);
   redundancy_->mirrorLagChangesIs(0);
   redundancy_->mirrorErrorIs({});
}

void MirrorClient::doClose() {
   answerClock_.timeMinIs(Vel::never);
   reactor_.reset();
   if (fd_ >= 0) close(fd_);
   fd_ = -1;
   stage_ = Stage::idle;
   in_.clear();
   out_.clear();
   for (int f : received_) close(f);
   received_.clear();
}

void MirrorClient::doRetry(Lldp::MirrorState state, const std::string& why) {
   const bool wasStreaming = stage_ == Stage::stream;
   doClose();
   if (!running_) return;
   redundancy_->mirrorStateIs(state);
   redundancy_->mirrorErrorIs(why);
   VEL_TRACE(traceMirror, 2, "mirror of " << options_.peerSocket << ": " << why);
   if (state != Lldp::MirrorStateNames::mirrorDisconnected || !wasStreaming) {
      LLDP_MIRROR_PEER_PROBLEM.log(options_.peerSocket, why);
   }
   if (wasStreaming && redundancySm_) {
      const Lldp::Agent::PeerLoss word = lastWord_;
      lastWord_ = Lldp::Agent::PeerLoss::connectionBroken;
      redundancySm_->handlePeerConnectionLost(word);
      if (!running_) return;  // it took over
   }
   // A stream that broke is asked for again at once; a peer that is wrong, ever more slowly.
   retryDelay_ = wasStreaming ? options_.retryMin
                              : std::clamp(retryDelay_ * 2, options_.retryMin, options_.retryMax);
   retryClock_.timeMinIs(Vel::EventLoop::instance().now() + retryDelay_);
}

void MirrorClient::doConnect() {
   if (!running_) return;
   doClose();
   sockaddr_un addr{};
   addr.sun_family = AF_UNIX;
   if (options_.peerSocket.empty() || options_.peerSocket.size() >= sizeof addr.sun_path) {
      doRetry(Lldp::MirrorStateNames::mirrorBadPeer, "the peer socket path is empty or too long");
      return;
   }
   std::memcpy(addr.sun_path, options_.peerSocket.data(), options_.peerSocket.size());
   fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0 || ::connect(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
      const int err = errno;
      std::string why = err == ENOENT         ? "no socket there (is the active agent running?)"
                        : err == ECONNREFUSED ? "nobody answers there"
                                              : std::string("cannot connect: ") + strerror(err);
      doRetry(Lldp::MirrorStateNames::mirrorDisconnected, why);
      return;
   }
   reactor_ = std::make_unique<Vel::FdReactor>(fd_, [this] { handleReadable(); });
   stage_ = Stage::answer;
   redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorConnecting);
   Vel::Json req{{"op", "mirror"},
                 {"cell", redundancy_->cellId()},
                 {"layout", Lldp::Mirror::recordLayout()},
                 {"listeners", true}};
   doWrite(req.dump() + "\n");
   answerClock_.timeMinIs(Vel::EventLoop::instance().now() + options_.answerTimeout);
}

void MirrorClient::doWrite(const std::string& line) {
   if (fd_ < 0) return;
   out_ += line;
   while (!out_.empty()) {
      ssize_t n = ::send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n > 0) {
         out_.erase(0, size_t(n));
         continue;
      }
      if (n < 0 && errno == EINTR) continue;
      return;  // the rest goes with the next write; a broken socket shows on the read side
   }
}

void MirrorClient::handleReadable() {
   char buf[readChunk];
   for (int i = 0; i < chunksPerTurn && fd_ >= 0; ++i) {
      // The answer may carry the active agent's listening sockets.
      iovec iov{buf, sizeof buf};
      alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * ControlConnection::maxFds)];
      msghdr msg{};
      msg.msg_iov = &iov;
      msg.msg_iovlen = 1;
      msg.msg_control = control;
      msg.msg_controllen = sizeof control;
      ssize_t n = recvmsg(fd_, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
      for (cmsghdr* cm = n > 0 ? CMSG_FIRSTHDR(&msg) : nullptr; cm; cm = CMSG_NXTHDR(&msg, cm)) {
         if (cm->cmsg_level != SOL_SOCKET || cm->cmsg_type != SCM_RIGHTS) continue;
         const size_t count = (cm->cmsg_len - CMSG_LEN(0)) / sizeof(int);
         for (size_t k = 0; k < count; ++k) {
            int f;
            std::memcpy(&f, CMSG_DATA(cm) + k * sizeof(int), sizeof f);
            received_.push_back(f);
         }
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
      if (n <= 0) {
         const std::string why = n == 0 ? "the peer closed the connection"
                                        : std::string("cannot read: ") + strerror(errno);
         if (stage_ == Stage::answer) {
            doRetry(Lldp::MirrorStateNames::mirrorBadPeer, why + " without answering");
         } else {
            doRetry(Lldp::MirrorStateNames::mirrorDisconnected,
                    why + (in_.empty() ? "" : " in the middle of a message"));
         }
         return;
      }
      in_.append(buf, size_t(n));
      size_t used = 0;
      for (;;) {
         const size_t nl = in_.find('\n', used);
         if (nl == std::string::npos) break;
         const std::string_view line(in_.data() + used, nl - used);
         used = nl + 1;
         if (!handleLine(line)) return;  // closed, with the reason
      }
      in_.erase(0, used);
      if (in_.size() > maxLineBytes) {
         doRetry(stage_ == Stage::answer ? Lldp::MirrorStateNames::mirrorBadPeer
                                         : Lldp::MirrorStateNames::mirrorResync,
                 "the peer sent " + std::to_string(in_.size()) + " bytes without a line end");
         return;
      }
   }
   doAck();
}

bool MirrorClient::handleLine(std::string_view line) {
   Vel::Json j = Vel::Json::parse(line, nullptr, false);
   if (j.is_discarded() || !j.is_object()) {
      if (stage_ == Stage::answer) {
         doRetry(Lldp::MirrorStateNames::mirrorBadPeer,
                 "not an LLDP agent: it answered '" + excerpt(line) + "'");
      } else {
         doRetry(Lldp::MirrorStateNames::mirrorResync,
                 "an unreadable line in the stream: '" + excerpt(line) + "'");
      }
      return false;
   }
   if (stage_ == Stage::answer) return handleAnswer(j, line);
   if (j.contains("m")) return handleMessage(j);
   // The answer to an acknowledgement: how far behind the active agent this copy is.
   auto ok = j.find("ok");
   if (ok == j.end() || !ok->is_boolean()) {
      doRetry(Lldp::MirrorStateNames::mirrorResync,
              "an unknown line in the stream: '" + excerpt(line) + "'");
      return false;
   }
   if (!ok->get<bool>()) {
      doRetry(Lldp::MirrorStateNames::mirrorResync,
              "the active agent refused an acknowledgement: " + excerpt(line));
      return false;
   }
   if (auto data = j.find("data"); data != j.end() && data->is_object()) {
      if (auto lag = data->find("lag"); lag != data->end() && lag->is_number_unsigned()) {
         redundancy_->mirrorLagChangesIs(lag->get<uint64_t>());
      }
   }
   return true;
}

bool MirrorClient::handleAnswer(const Vel::Json& j, std::string_view line) {
   answerClock_.timeMinIs(Vel::never);
   auto ok = j.find("ok");
   if (ok == j.end() || !ok->is_boolean()) {
      doRetry(Lldp::MirrorStateNames::mirrorBadPeer,
              "not an LLDP agent: it answered '" + excerpt(line) + "'");
      return false;
   }
   if (!ok->get<bool>()) {
      auto e = j.find("error");
      const std::string error = e != j.end() && e->is_string() ? e->get<std::string>() : "";
      // An agent of a version without the mirror does not know the request.
      doRetry(Lldp::MirrorStateNames::mirrorRefused,
              "the active agent refused: " + (error.empty() ? excerpt(line) : error));
      return false;
   }
   auto data = j.find("data");
   if (data == j.end() || !data->is_object() || !data->contains("cell") ||
       !(*data)["cell"].is_number_unsigned()) {
      doRetry(Lldp::MirrorStateNames::mirrorBadPeer,
              "not an LLDP agent: it answered '" + excerpt(line) + "'");
      return false;
   }
   activeCell_ = (*data)["cell"].get<uint32_t>();
   // The listeners handed over with this answer replace any from an earlier connection.
   for (auto& [name, f] : listeners_) close(f);
   listeners_.clear();
   if (auto names = data->find("listeners"); names != data->end() && names->is_array()) {
      for (size_t k = 0; k < names->size() && k < received_.size(); ++k) {
         if (!(*names)[k].is_string()) continue;
         listeners_[(*names)[k].get<std::string>()] = std::exchange(received_[k], -1);
      }
   }
   for (int f : received_) {
      if (f >= 0) close(f);
   }
   received_.clear();
   stage_ = Stage::stream;
   seq_ = ackedSeq_ = 0;
   lastWord_ = Lldp::Agent::PeerLoss::connectionBroken;
   retryDelay_ = 0;
   cellSm_ = dirSm_->standbyCellDirSmIs(activeCell_);
   redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorSnapshot);
   redundancy_->mirrorErrorIs({});
   VEL_TRACE(traceMirror, 4,
             "mirroring cell " << activeCell_ << " of the agent at " << options_.peerSocket);
   if (redundancySm_) {
      redundancySm_->handlePeerCellId(activeCell_);
      redundancySm_->handlePeerConnected();
   }
   return fd_ >= 0;
}

bool MirrorClient::handleMessage(const Vel::Json& j) {
   auto fail = [this](const std::string& why) {
      doRetry(Lldp::MirrorStateNames::mirrorResync, why);
      return false;
   };
   auto s = j.find("seq");
   if (s == j.end() || !s->is_number_unsigned()) return fail("a message without a sequence number");
   const uint64_t seq = s->get<uint64_t>();
   if (seq != seq_ + 1) {
      return fail("a gap in the stream: message " + std::to_string(seq) + " after " +
                  std::to_string(seq_));
   }
   const Vel::Json& m = j["m"];
   const std::string kind = m.is_string() ? m.get<std::string>() : std::string();
   auto str = [&j](const char* name) {
      auto it = j.find(name);
      return it != j.end() && it->is_string() ? it->get<std::string>() : std::string();
   };
   auto record = [&]() -> bool {
      return Lldp::Mirror::fromHex(str("d"), bytes_) && !bytes_.empty();
   };
   std::string error;
   Lldp::Agent::StandbyCellDirSm& cell = *cellSm_;
   if (kind == "begin") {
      if (everInSync_) redundancy_->mirrorResyncsInc();
      redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorSnapshot);
      cell.handleSnapshotBegin();
   } else if (kind == "end") {
      cell.handleSnapshotEnd();
      everInSync_ = true;
      redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorInSync);
      LLDP_MIRROR_IN_SYNC.log(options_.peerSocket, uint64_t(cell.remoteSystemCount()));
   } else if (kind == "port" || kind == "remote") {
      const std::string intf = str("intf");
      if (intf.empty() || !record()) return fail("a " + kind + " message without its record");
      const bool ok = kind == "port" ? cell.handlePort(Wire::IntfId(intf), bytes_, &error)
                                     : cell.handleRemoteSystem(Wire::IntfId(intf), bytes_, &error);
      if (!ok) return fail(error);
   } else if (kind == "portDel") {
      const std::string intf = str("intf");
      if (intf.empty()) return fail("a portDel message without its interface");
      cell.handlePortDel(Wire::IntfId(intf));
   } else if (kind == "remoteDel") {
      const std::string intf = str("intf");
      auto index = j.find("index");
      if (intf.empty() || index == j.end() || !index->is_number_integer()) {
         return fail("a remoteDel message without its interface and index");
      }
      cell.handleRemoteSystemDel(Wire::IntfId(intf), index->get<int>());
   } else if (kind == "global") {
      if (!record()) return fail("a global message without its record");
      if (!cell.handleGlobal(bytes_, &error)) return fail(error);
   } else if (kind == "resync") {
      redundancy_->mirrorStateIs(Lldp::MirrorStateNames::mirrorResync);
      redundancy_->mirrorErrorIs("the active agent resynchronises this standby: " + str("reason"));
   } else if (kind == "handover") {
      lastWord_ = Lldp::Agent::PeerLoss::handedOver;
   } else if (kind == "stopping") {
      lastWord_ = Lldp::Agent::PeerLoss::peerStopping;
   } else {
      return fail("an unknown message '" + excerpt(kind) + "'");
   }
   seq_ = seq;
   redundancy_->mirrorSequenceIs(seq);
   redundancy_->mirrorChangesAppliedInc();
   if (kind == "handover") doAck();  // the active agent waits for this before it goes
   return true;
}

void MirrorClient::doAck() {
   if (stage_ != Stage::stream || seq_ == ackedSeq_) return;
   ackedSeq_ = seq_;
   doWrite(Vel::Json{{"op", "mirror-ack"}, {"seq", seq_}}.dump() + "\n");
}

}  // namespace Daemon
