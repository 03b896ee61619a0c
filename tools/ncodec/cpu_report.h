// The processor report shared by `ncodec cpu` and the demo's cpu step.
#pragma once

#include <string>

namespace ncodec {

// Every CPUInfoTag field, the processor level in words and the optional
// extensions; false with *error set when the processor cannot be identified.
bool CpuReport(std::string* text, std::string* error);

}  // namespace ncodec
