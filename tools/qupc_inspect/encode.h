#pragma once

#include <iosfwd>
#include <string>

#include "capture.h"

namespace inspect {

/// Writes the bytes that the input describes: lines of a capture, with packets decoded or as bytes, or a scenario's sending
/// steps. `form` is Form::Capture, Form::Hex or Form::Raw. Throws InputError.
void encode(std::istream& in, const std::string& name, std::ostream& out, Form form);

} // namespace inspect
