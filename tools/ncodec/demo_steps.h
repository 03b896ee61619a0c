// The demo's step functions, one per capability (see demo.h).
#pragma once

#include "tools/ncodec/demo.h"

namespace ncodec {

bool DemoCpu(const DemoContext& context, std::string* error);      // cpu.txt
bool DemoBuffers(const DemoContext& context, std::string* error);  // buffers.txt
bool DemoFormats(const DemoContext& context, std::string* error);  // formats.txt
bool DemoAudio(const DemoContext& context, std::string* error);    // audio.txt, audio_sweep*.wav
bool DemoPng(const DemoContext& context, std::string* error);      // png.txt, png_*.png
// gif.txt, gif_animation.gif, gif_frame0.png
bool DemoGif(const DemoContext& context, std::string* error);
bool DemoJpeg(const DemoContext& context, std::string* error);    // jpeg.txt, jpeg_sample.*
bool DemoColour(const DemoContext& context, std::string* error);  // colour.txt, colour_strip.png
// composite.txt, composite.png, composite_small.png, composite_large.png
bool DemoComposite(const DemoContext& context, std::string* error);
bool DemoPlay(const DemoContext& context, std::string* error);    // play.txt, play_capture.wav
bool DemoRender(const DemoContext& context, std::string* error);  // render.txt, render.png
bool DemoLayers(const DemoContext& context, std::string* error);  // layers.txt, layers.png

}  // namespace ncodec
