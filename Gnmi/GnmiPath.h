// Text helpers shared by the path code and the model: JSON string quoting and base64.
#pragma once

#include <string>
#include <string_view>

namespace Gnmi {

// Appends `s` as a JSON string (quotes included), escaping what JSON requires; bytes that
// are not valid UTF-8 are written as \u00XX of the byte, so the result is always valid.
void appendJsonString(std::string& out, std::string_view s);
// Standard base64 with padding.
std::string base64(std::string_view bytes);
// Decodes standard base64 (padding optional); false on a character outside the alphabet.
bool unbase64(std::string_view text, std::string& out);

}  // namespace Gnmi
