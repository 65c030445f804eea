// Conversions between the model's paths, values and changes and the gNMI messages.
#pragma once

#include <string>

#include "Gnmi/GnmiModel.h"
#include "Gnmi/gnmi.pb.h"

namespace Gnmi {

// A message path (prefix joined by the caller) to ours: keys sorted by name, since a
// message's key map has no order. False (with the reason) on an empty element name.
bool fromProto(const gnmi::Path& in, Path& out, std::string& error);
void toProto(const Path& in, gnmi::Path* out);

// Scalars and leaf-lists as typed values (what Subscribe and Get in PROTO encoding send).
void toProto(const Value& in, gnmi::TypedValue* out);
// A Set value: scalars typed, JSON and JSON_IETF as text for the model to read. False
// (with the reason) for what a configuration leaf never holds (bytes, any, decimal).
bool fromProto(const gnmi::TypedValue& in, Update& out, std::string& error);

// One change as one atomic notification.
void toProto(const Change& in, gnmi::Notification* out);

}  // namespace Gnmi
