// Animated GIF conversions for `ncodec convert`, beyond the one-picture view
// of the image-format table: every frame of a GIF to numbered files, and
// several pictures to one animated GIF.
#pragma once

#include <string>
#include <vector>

namespace ncodec {

// `ncodec convert in.gif out_%03d.png`: writes frame k (composed in order,
// drawn pixels opaque, uncovered ones transparent) to the file named by the
// printf-style pattern with k, in the format its extension names. Returns
// the process exit status (0, or 1 with a message on stderr).
int ConvertGifFrames(const std::string& input, const std::string& outputPattern);

// `ncodec convert a.png b.png c.jpg --delay 10 out.gif`: every input (any
// format ncodec reads, all of the first one's size) becomes one frame shown
// for delayCentiseconds hundredths of a second. Says plainly when the file
// would pass the encoder's 1 MiB limit. Returns the exit status.
int ConvertToGifAnimation(const std::vector<std::string>& inputs, int delayCentiseconds,
                          const std::string& output);

// Whether a convert output name holds a printf-style frame number.
bool IsFramePattern(const std::string& path);

}  // namespace ncodec
