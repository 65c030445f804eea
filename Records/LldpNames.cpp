#include "Records/LldpNames.h"

#include <iterator>

namespace Lldp {

namespace {

// The name at `value` of a table indexed from `first`, or nullptr.
template <size_t N>
const char* lookup(const char* const (&names)[N], unsigned value, unsigned first = 0) {
   if (value < first || value - first >= N) return nullptr;
   return names[value - first];
}

// dot3MauType 1..104.
const char* const mauTypes[] = {
    "AUI",                   // 1
    "10BASE5",               // 2
    "FOIRL",                 // 3
    "10BASE2",               // 4
    "10BASE-T",              // 5
    "10BASE-FP",             // 6
    "10BASE-FB",             // 7
    "10BASE-FL",             // 8
    "10BROAD36",             // 9
    "10BASE-T half duplex",  // 10
    "10BASE-T full duplex",  // 11
    "10BASE-FL half duplex",
    "10BASE-FL full duplex",
    "100BASE-T4",  // 14
    "100BASE-TX half duplex",
    "100BASE-TX full duplex",
    "100BASE-FX half duplex",
    "100BASE-FX full duplex",
    "100BASE-T2 half duplex",
    "100BASE-T2 full duplex",  // 20
    "1000BASE-X half duplex",
    "1000BASE-X full duplex",
    "1000BASE-LX half duplex",
    "1000BASE-LX full duplex",
    "1000BASE-SX half duplex",
    "1000BASE-SX full duplex",
    "1000BASE-CX half duplex",
    "1000BASE-CX full duplex",
    "1000BASE-T half duplex",
    "1000BASE-T full duplex",  // 30
    "10GBASE-X",
    "10GBASE-LX4",
    "10GBASE-R",
    "10GBASE-ER",
    "10GBASE-LR",
    "10GBASE-SR",  // 36
    "10GBASE-W",
    "10GBASE-EW",
    "10GBASE-LW",
    "10GBASE-SW",  // 40
    "10GBASE-CX4",
    "2BASE-TL",
    "10PASS-TS",
    "100BASE-BX10D",
    "100BASE-BX10U",
    "100BASE-LX10",
    "1000BASE-BX10D",
    "1000BASE-BX10U",
    "1000BASE-LX10",
    "1000BASE-PX10D",  // 50
    "1000BASE-PX10U",
    "1000BASE-PX20D",
    "1000BASE-PX20U",
    "10GBASE-T",  // 54
    "10GBASE-LRM",
    "1000BASE-KX",
    "10GBASE-KX4",
    "10GBASE-KR",
    "10/1GBASE-PRX-D1",
    "10/1GBASE-PRX-D2",  // 60
    "10/1GBASE-PRX-D3",
    "10/1GBASE-PRX-U1",
    "10/1GBASE-PRX-U2",
    "10/1GBASE-PRX-U3",
    "10GBASE-PR-D1",
    "10GBASE-PR-D2",
    "10GBASE-PR-D3",
    "10GBASE-PR-U1",
    "10GBASE-PR-U3",
    "40GBASE-KR4",  // 70
    "40GBASE-CR4",
    "40GBASE-SR4",
    "40GBASE-FR",
    "40GBASE-LR4",
    "100GBASE-CR10",
    "100GBASE-SR10",
    "100GBASE-LR4",
    "100GBASE-ER4",
    "1000BASE-T1",
    "1000BASE-PX30D",  // 80
    "1000BASE-PX30U",
    "1000BASE-PX40D",
    "1000BASE-PX40U",
    "10/1GBASE-PRX-D4",
    "10/1GBASE-PRX-U4",
    "10GBASE-PR-D4",
    "10GBASE-PR-U4",
    "25GBASE-CR",
    "25GBASE-CR-S",
    "25GBASE-KR",  // 90
    "25GBASE-KR-S",
    "25GBASE-R",
    "25GBASE-SR",
    "25GBASE-T",
    "40GBASE-ER4",
    "40GBASE-R",
    "40GBASE-T",
    "100GBASE-CR4",
    "100GBASE-KR4",
    "100GBASE-KP4",  // 100
    "100GBASE-R",
    "100GBASE-SR4",
    "2.5GBASE-T",
    "5GBASE-T",  // 104
};

// The advertised capability bits, bit 0 first.
const char* const autonegModes[16] = {"other",
                                      "10BASE-T",
                                      "10BASE-T full duplex",
                                      "100BASE-T4",
                                      "100BASE-TX",
                                      "100BASE-TX full duplex",
                                      "100BASE-T2",
                                      "100BASE-T2 full duplex",
                                      "PAUSE",
                                      "asymmetric PAUSE",
                                      "symmetric PAUSE",
                                      "asymmetric and symmetric PAUSE",
                                      "1000BASE-X",
                                      "1000BASE-X full duplex",
                                      "1000BASE-T",
                                      "1000BASE-T full duplex"};

}  // namespace

std::string nameOr(const char* name, unsigned value) {
   return name ? std::string(name) : std::to_string(value);
}

const char* mauTypeName(unsigned mauType) {
   return lookup(mauTypes, mauType, 1);
}

std::vector<std::string> autonegModeNames(uint16_t advertised) {
   std::vector<std::string> names;
   for (unsigned bit = 0; bit < 16; ++bit) {
      if (advertised & (0x8000u >> bit)) names.emplace_back(autonegModes[bit]);
   }
   return names;
}

const char* powerClassName(unsigned powerClass) {
   static const char* const names[] = {"class 0", "class 1", "class 2", "class 3", "class 4"};
   return lookup(names, powerClass, 1);
}

const char* psePowerPairName(unsigned pair) {
   static const char* const names[] = {"signal", "spare"};
   return lookup(names, pair, 1);
}

const char* powerTypeName(unsigned powerType) {
   static const char* const names[] = {"type 2 PSE", "type 2 PD", "type 1 PSE", "type 1 PD"};
   return lookup(names, powerType);
}

const char* powerSourceName(unsigned source, bool fromPd) {
   static const char* const pse[] = {"unknown", "primary", "backup"};
   static const char* const pd[] = {"unknown", "PSE", "local", "PSE and local"};
   return fromPd ? lookup(pd, source) : lookup(pse, source);
}

const char* powerPriorityName(unsigned priority) {
   static const char* const names[] = {"unknown", "critical", "high", "low"};
   return lookup(names, priority);
}

const char* powerClassExtName(unsigned classExt) {
   static const char* const names[] = {"class 1", "class 2", "class 3", "class 4",
                                       "class 5", "class 6", "class 7", "class 8"};
   if (classExt == 0xf) return "dual-signature PD";
   return lookup(names, classExt, 1);
}

const char* powerTypeExtName(unsigned typeExt) {
   static const char* const names[] = {"type 3 PSE",
                                       "type 4 PSE",
                                       "type 3 single-signature PD",
                                       "type 3 dual-signature PD",
                                       "type 4 single-signature PD",
                                       "type 4 dual-signature PD"};
   return lookup(names, typeExt);
}

const char* medDeviceTypeName(unsigned deviceType) {
   static const char* const names[] = {"not defined", "Endpoint Class I", "Endpoint Class II",
                                       "Endpoint Class III", "Network Connectivity"};
   return lookup(names, deviceType);
}

const char* medApplicationName(unsigned appType) {
   static const char* const names[] = {
       "Voice",           "Voice Signaling",    "Guest Voice",     "Guest Voice Signaling",
       "Softphone Voice", "Video Conferencing", "Streaming Video", "Video Signaling"};
   return lookup(names, appType, 1);
}

const char* locationFormatName(unsigned format) {
   static const char* const names[] = {"Coordinate-based LCI", "Civic Address LCI", "ECS ELIN"};
   return lookup(names, format, 1);
}

const char* civicCaTypeName(unsigned caType) {
   static const char* const low[] = {
       "language",      "national subdivision", "county",      "city",
       "city division", "neighborhood",         "street group"};  // 0..6
   static const char* const high[] = {"leading street direction",
                                      "trailing street suffix",
                                      "street suffix",
                                      "house number",
                                      "house number suffix",
                                      "landmark",
                                      "additional location",
                                      "name",
                                      "postal code",
                                      "building",
                                      "unit",
                                      "floor",
                                      "room",
                                      "place type",
                                      "postal community name",
                                      "post office box",
                                      "additional code",
                                      "seat",
                                      "primary road name",
                                      "road section",
                                      "road branch",
                                      "road sub-branch",
                                      "road pre-modifier",
                                      "road post-modifier"};  // 16..39
   if (caType == 128) return "script";
   if (const char* n = lookup(low, caType)) return n;
   return lookup(high, caType, 16);
}

}  // namespace Lldp
