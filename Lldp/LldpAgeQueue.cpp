#include "Lldp/LldpAgeQueue.h"

#include <algorithm>

namespace Lldp::Agent::Protocol {

void LldpAgeQueue::push(Vel::Seconds time, int index) {
   // Grows by half, not double: a port of many neighbours keeps a quarter of its queue
   // spare on average instead of half.
   if (heap_.size() == heap_.capacity()) heap_.reserve(heap_.size() + heap_.size() / 2 + 16);
   heap_.push_back(Entry{time, index});
   std::push_heap(heap_.begin(), heap_.end(), later);
   latestQueued_ = std::max(latestQueued_, time);
}

void LldpAgeQueue::popFront() {
   std::pop_heap(heap_.begin(), heap_.end(), later);
   heap_.pop_back();
}

void LldpAgeQueue::queueIs(const Lldp::RemoteSystem& remote, const Table& table) {
   if (heap_.size() >= table.size() + table.size() / 2 + 16) {
      rebuildFrom(table);  // the neighbour is in the table: it has its entry now
      return;
   }
   push(remote.expiryTime(), remote.index());
}

void LldpAgeQueue::rebuildFrom(const Table& table) {
   heap_.clear();
   latestQueued_ = 0;
   for (const auto& [index, remote] : table) {
      heap_.push_back(Entry{remote->expiryTime(), index});
      latestQueued_ = std::max(latestQueued_, remote->expiryTime());
   }
   std::make_heap(heap_.begin(), heap_.end(), later);
}

void LldpAgeQueue::clear() {
   heap_.clear();
   latestQueued_ = 0;
}

void LldpAgeQueue::expiredAt(Vel::Seconds now, const Table& table,
                             std::vector<Vel::Ptr<Lldp::RemoteSystem>>& expired) {
   const size_t first = expired.size();
   while (!heap_.empty()) {
      const Entry top = heap_[0];
      const auto it = table.find(top.index);
      if (it == table.end()) {
         popFront();  // the neighbour went some other way
         continue;
      }
      const Vel::Seconds expiry = it->second->expiryTime();
      if (now >= expiry) {
         popFront();
         expired.push_back(it->second);
         continue;
      }
      if (expiry == top.time) break;  // the earliest expiry, still to come
      popFront();                     // refreshed since it was queued
      push(expiry, top.index);
   }
   // A neighbour queued more than once was taken once per entry that had come due.
   const auto byIndex = [](const auto& a, const auto& b) { return a->index() < b->index(); };
   const auto sameIndex = [](const auto& a, const auto& b) { return a->index() == b->index(); };
   std::sort(expired.begin() + ptrdiff_t(first), expired.end(), byIndex);
   expired.erase(std::unique(expired.begin() + ptrdiff_t(first), expired.end(), sameIndex),
                 expired.end());
}

Vel::Seconds LldpAgeQueue::front() const {
   return heap_.empty() ? Vel::never : heap_[0].time;
}

}  // namespace Lldp::Agent::Protocol
