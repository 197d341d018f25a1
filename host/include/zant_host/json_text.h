// The strict JSON check that decides whether a parameter's text is read as
// a JSON value or kept as a string.
#pragma once

#include <string>

namespace zant_host {

// True when `text` is one complete JSON text (RFC 8259, blanks around it
// allowed, nesting at most 256 deep).
bool IsJsonText(const std::string& text);

}  // namespace zant_host
