#pragma once

#include <string>
#include <string_view>

namespace bridge {

// Appends `bytes` in standard Base64 with padding, the form the app's decoder expects for `payload`.
void appendBase64(std::string& out, std::string_view bytes);

} // namespace bridge
