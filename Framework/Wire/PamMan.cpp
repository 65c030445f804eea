#include "Framework/Wire/PamMan.h"

#include "Framework/Trace.h"

namespace Wire {

namespace {
Vel::Trace::Handle trace("PamMan");
}

PamMan::PamMan(Vel::Ptr<const Interface::PamDesiredIntfDir> desired, Vel::Ptr<PamCollection> pams,
               Factory factory)
    : desired_(std::move(desired)), pams_(std::move(pams)), factory_(std::move(factory)) {
   desiredReactor_.man = this;
   desiredReactor_.notifierIs(desired_);
}

PamMan::~PamMan() {
   desiredReactor_.notifierIs(nullptr);
}

bool PamMan::wanted(const IntfId& intf) const {
   const bool* desired = desired_->intfDesired(intf);
   return enabled_ && desired && *desired;
}

void PamMan::enabledIs(bool on) {
   if (on == enabled_) return;
   enabled_ = on;
   VEL_TRACE(trace, 4, "packet access " << (on ? "enabled" : "disabled"));
   if (on) {
      for (const auto& [intf, desired] : desired_->intfDesired()) doSync(intf);
   } else {
      failed_.clear();
      pams_->intfPamDelAll();
   }
}

void PamMan::intfRetry(const IntfId& intf) {
   if (failed_.count(intf)) doSync(intf);
}

void PamMan::doSync(const IntfId& intf) {
   if (!wanted(intf)) {
      failed_.erase(intf);
      if (pams_->intfPamDel(intf)) VEL_TRACE(trace, 6, intf << ": packet access closed");
      return;
   }
   if (pams_->intfPam(intf)) return;
   std::string why;
   Vel::Ptr<Pam> pam = factory_(intf, settings_, &why);
   if (!pam) {
      VEL_TRACE(trace, 2, intf << ": no packet access: " << why);
      failed_[intf] = why;
      return;
   }
   failed_.erase(intf);
   VEL_TRACE(trace, 6, intf << ": packet access open");
   pams_->intfPamIs(intf, pam);
}

}  // namespace Wire
