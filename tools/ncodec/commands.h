// Subcommands of ncodec. Each takes the arguments after its own name and
// returns the process exit code (0 success; failures print a message to
// stderr first).
#pragma once

#include <string>
#include <vector>

namespace ncodec {

using Args = std::vector<std::string>;

int RunAudio(const Args& args);
int RunConvert(const Args& args);
int RunCpu(const Args& args);
int RunDemo(const Args& args);
int RunDevices(const Args& args);
int RunInfo(const Args& args);
int RunLayers(const Args& args);
int RunPlay(const Args& args);
int RunPlugins(const Args& args);
int RunRar(const Args& args);
int RunResize(const Args& args);
int RunScenes(const Args& args);
int RunShow(const Args& args);
int RunZip(const Args& args);

}  // namespace ncodec
