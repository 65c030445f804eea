// Decoding of received IEEE 802.3 organizationally specific TLVs (OUI 00-12-0F) with the
// length rules of IEEE 802.3 clause 79.
#pragma once

#include "Framework/Trace.h"
#include "Records/LldpRemoteSystem.h"
#include "Records/TlvParseResult.h"

namespace Lldp {
extern Vel::Trace::Handle traceLldpExtDot3;
}

// `info` and `infoLen` cover the bytes after the OUI and subtype.
TlvParseResult parseExtDot3Tlv(int subtype, int infoLen, const char* info,
                               const Vel::Ptr<Lldp::RemoteSystem>& remote);
