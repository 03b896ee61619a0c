// The demo: a table of steps, each exercising one capability of the library
// and writing its results under the output folder. A new capability adds one
// step function (in a demo_<name>.cpp of its own, declared in demo_steps.h)
// and one entry in the table of demo.cpp.
#pragma once

#include <filesystem>
#include <string>

namespace ncodec {

struct DemoContext {
    std::filesystem::path outDir;

    // Writes `text` to outDir/name; false with *error set on failure.
    bool WriteText(const std::string& name, const std::string& text, std::string* error) const;
    // Writes raw bytes to outDir/name.
    bool WriteBytes(const std::string& name, const void* data, size_t size,
                    std::string* error) const;
};

// A step returns true when everything it tried worked; on false it sets
// *error to one line saying what failed.
using DemoFunction = bool (*)(const DemoContext& context, std::string* error);

struct DemoStep {
    const char* name;
    const char* summary;
    DemoFunction run;
};

}  // namespace ncodec
