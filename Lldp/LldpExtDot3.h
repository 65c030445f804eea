// IEEE 802.3 organizationally specific TLVs (OUI 00-12-0F) on transmit: Power via MDI,
// Link Aggregation and Maximum Frame Size. Decoding is parseExtDot3Tlv in the records.
#pragma once

#include "Records/Lldp.h"
#include "Records/LldpExtDot3Parse.h"
#include "Records/PoeUtils.h"

bool addExtDot3Tlvs(char** pos, char* end, Lldp::LocalPort::PtrConst localPort,
                    Lldp::PortConfig::PtrConst portConfig, char* info,
                    Lldp::PortStatus::Ptr portStatus);
