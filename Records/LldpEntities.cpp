#include "Records/Lldp.h"

namespace Lldp {

bool RemoteSystem::anyLldpMedReceived() const {
   return medCapabilitiesTlvReceived_ || !networkPolicyTlv_.empty() ||
          locationId_.format() != LocationId::formatNone || !hardwareRevisionTlvInfo_.empty() ||
          !firmwareRevisionTlvInfo_.empty() || !softwareRevisionTlvInfo_.empty() ||
          !serialNumberTlvInfo_.empty() || !manufacturerNameTlvInfo_.empty() ||
          !modelNameTlvInfo_.empty() || !assetIDTlvInfo_.empty();
}

namespace {

template <class Pred>
bool anyRemote(const PortStatus& ps, Pred pred) {
   for (const auto& [index, remote] : ps.remoteSystem()) {
      if (pred(*remote)) return true;
   }
   return false;
}

}  // namespace

PortStatus::Senders PortStatus::noSenders;

PortStatus::~PortStatus() {
   if (senders_ != &noSenders) delete senders_;
}

bool PortStatus::anyLldpMedReceived() const {
   if (senders_) return !senders_->med.empty();
   return anyRemote(*this, [](const RemoteSystem& r) { return r.anyLldpMedReceived(); });
}

bool PortStatus::networkPolicyTlvReceived() const {
   return anyRemote(*this, [](const RemoteSystem& r) { return !r.networkPolicyTlv().empty(); });
}

bool PortStatus::powerViaMdiTlvReceived() const {
   if (senders_) return !senders_->power.empty();
   return anyRemote(*this, [](const RemoteSystem& r) { return r.powerViaMdiTlvReceived(); });
}

void PortStatus::senderTrackingIs(bool on) {
   if (senders_ != &noSenders) delete senders_;
   senders_ = on ? &noSenders : nullptr;
   if (!on) return;
   for (const auto& [index, remote] : remoteSystem()) remoteSystemSenderIs(index);
}

const RemoteSystem* PortStatus::remoteSystemAt(int index) const {
   if (remoteSystem_.empty()) return nullptr;
   const auto last = remoteSystem_.rbegin();
   if (last->first == index) return last->second.ptr();
   if (last->first < index) return nullptr;
   const auto it = remoteSystem_.find(index);
   return it == remoteSystem_.end() ? nullptr : it->second.ptr();
}

void PortStatus::remoteSystemSenderIs(int index) {
   if (!senders_) return;
   const RemoteSystem* r = remoteSystemAt(index);
   const bool med = r && r->anyLldpMedReceived(), power = r && r->powerViaMdiTlvReceived();
   if (senders_ == &noSenders) {
      if (!med && !power) return;
      senders_ = new Senders;
   }
   if (med) {
      senders_->med.insert(index);
   } else {
      senders_->med.erase(index);
   }
   if (power) {
      senders_->power.insert(index);
   } else {
      senders_->power.erase(index);
   }
}

// ---------------------------------------------------------------------------------------
// RemoteSystemTally.

uint64_t RemoteSystemTally::count(const Vel::Ptr<const PortStatus>& port) {
   if (!slot_.count(port.ptr())) {
      auto w = std::make_unique<Watch>();
      w->tally = this;
      w->port = port.ptr();
      w->counted = port->remoteSystem().size();
      w->notifierIs(port);
      total_ += w->counted;
      slot_[port.ptr()] = watches_.size();
      watches_.push_back(std::move(w));
   }
   pruneOne();
   return total_;
}

void RemoteSystemTally::Watch::remoteSystemChanged(const int&) {
   const size_t now = port->remoteSystem().size();
   tally->total_ = tally->total_ + now - counted;
   counted = now;
}

// Checks one port per call, in turn: one that only this tally still holds, with no
// neighbours left, is dropped. A port removed from its status thus costs nothing for long.
void RemoteSystemTally::pruneOne() {
   if (watches_.empty()) return;
   if (next_ >= watches_.size()) next_ = 0;
   Watch& w = *watches_[next_];
   if (w.counted != 0 || w.port->refCount() > 1) {
      ++next_;
      return;
   }
   slot_.erase(w.port);
   if (next_ + 1 != watches_.size()) {
      std::swap(watches_[next_], watches_.back());
      slot_[watches_[next_]->port] = next_;
   }
   watches_.pop_back();
}

}  // namespace Lldp
