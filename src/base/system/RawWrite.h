// Writing to a descriptor that is already open.
#pragma once

#include <string_view>

// Writes all of `text` to `descriptor`: goes on after short writes and interruptions. False, with errno set, when the
// system refuses; part of the text may then be written.
[[nodiscard]] bool writeFully(int descriptor, std::string_view text);
