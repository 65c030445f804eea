// The outcome of decoding one received TLV.
#pragma once

enum TlvParseResult {
   TlvParseResultEnd = 0,           // End of LLDPDU reached
   TlvParseResultOk = 1,            // decoded and stored
   TlvParseResultUnrecognized = 2,  // well formed but not understood; counted
   TlvParseResultError = 3,         // this TLV is dropped and counted; the frame goes on
   TlvParseResultFatalError = 4,    // the whole LLDPDU is discarded
};
