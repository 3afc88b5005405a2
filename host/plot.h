// A picture of a conversion: levels before and after over time, gain reduction over time, the matrix as a heat map.
#pragma once

#include <string>

#include "conversion.h"

namespace host {

// Throws Error when a picture cannot be drawn, or not to a file of this name; for use before anything else is done.
void check_plot(const std::string& path);

// path: .png or .svg. gain_reduction: in dB; null where it is not known. Throws Error.
void plot(const std::string& path, const Conversion& conversion, const Envelope* gain_reduction);

} // namespace host
