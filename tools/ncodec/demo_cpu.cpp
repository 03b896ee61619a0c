// Demo step "cpu": the processor report, as `ncodec cpu` prints it.
#include "tools/ncodec/cpu_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {

bool DemoCpu(const DemoContext& context, std::string* error) {
    std::string text;
    return CpuReport(&text, error) && context.WriteText("cpu.txt", text, error);
}

}  // namespace ncodec
