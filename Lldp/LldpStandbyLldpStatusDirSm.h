// The standby's copy of the active agent's status: one `Lldp::Status` in the peer cells'
// directory, named by the active agent's cell, kept equal to what the active agent
// publishes (every port's counters, every neighbour with all its attributes, index,
// creation and expiry times, and the global counters) by applying its mirror stream.
//
// The stream is a snapshot followed by changes, each item carried whole (a port's
// attributes, one neighbour, the global counters) or as a removal. Items are applied as
// they come, so a snapshot that restarts (a resynchronisation) replaces the copy in place:
// at the snapshot's end, whatever it did not name is removed. Those who watch the copy see
// each neighbour added, changed or removed, never the whole table emptied and refilled.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Framework/Vel/Dir.h"
#include "Records/LldpStatus.h"

namespace Lldp::Agent {

class StandbyCellDirSm : public Vel::RefCounted {
public:
   // Creates the cell's entry in `lldpStatusDir` when it is missing.
   StandbyCellDirSm(Vel::Ptr<Vel::Dir> lldpStatusDir, uint32_t cellId);
   ~StandbyCellDirSm() override;

   uint32_t cellId() const { return cellId_; }
   const Lldp::Status::Ptr& status() const { return status_; }
   bool inSnapshot() const { return inSnapshot_; }

   // Each returns false with the reason when the item does not decode; the copy is then
   // unchanged by it.
   void handleSnapshotBegin();
   void handleSnapshotEnd();
   bool handlePort(const Wire::IntfId& intf, std::string_view bytes, std::string* error);
   void handlePortDel(const Wire::IntfId& intf);
   bool handleRemoteSystem(const Wire::IntfId& intf, std::string_view bytes, std::string* error);
   void handleRemoteSystemDel(const Wire::IntfId& intf, int index);
   bool handleGlobal(std::string_view bytes, std::string* error);

   size_t remoteSystemCount() const { return remoteSystems_; }
   // Removes the cell's entry from the directory, if this machine created it.
   void doClose();

private:
   struct Key {
      Wire::IntfId intf;
      int index;
      bool operator==(const Key&) const = default;
   };
   struct KeyHash {
      size_t operator()(const Key& k) const { return k.intf.hash() * 31 + size_t(k.index); }
   };
   void doDelRemote(Lldp::PortStatus& port, int index);

   Vel::Ptr<Vel::Dir> lldpStatusDir_;
   uint32_t cellId_;
   Lldp::Status::Ptr status_;
   bool created_ = false;
   bool inSnapshot_ = false;
   size_t remoteSystems_ = 0;
   // What the snapshot in progress named.
   std::unordered_set<Wire::IntfId, Vel::Hash<Wire::IntfId>> seenPorts_;
   std::unordered_set<Key, KeyHash> seenRemotes_;
   // Scratch records the stream is decoded into before it is applied.
   Lldp::PortStatus::Ptr scratchPort_;
   Lldp::RemoteSystem::Ptr scratchRemote_;
   Lldp::StatusBase::Ptr scratchGlobal_;
};

// The standby's machines of the peer cells, one per cell mirrored.
class StandbyLldpStatusDirSm : public Vel::RefCounted {
public:
   explicit StandbyLldpStatusDirSm(Vel::Ptr<Vel::Dir> lldpStatusDir);
   ~StandbyLldpStatusDirSm() override;

   const Vel::Ptr<Vel::Dir>& lldpStatusDir() const { return lldpStatusDir_; }
   Vel::Ptr<StandbyCellDirSm> standbyCellDirSmIs(uint32_t cellId);
   Vel::Ptr<StandbyCellDirSm> standbyCellDirSm(uint32_t cellId) const;
   // Stops mirroring the cell; its status stays in the directory (a standby taking over
   // keeps it).
   void standbyCellDirSmDel(uint32_t cellId);
   // Closes every cell's machine, each removing the status it created.
   void doClose();

private:
   Vel::Ptr<Vel::Dir> lldpStatusDir_;
   std::map<uint32_t, Vel::Ptr<StandbyCellDirSm>> standbyCellDirSm_;
};

}  // namespace Lldp::Agent
