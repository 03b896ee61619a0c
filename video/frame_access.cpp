// Frame set-up shared by the picture operations; see frame_access.h.
#include "video/frame_access.h"

#include "ncodecbase/codec_buffer.h"

namespace ncb::video {

PictureArgs MakePictureArgs(CNCodecBuffer* input, CNCodecBuffer* output,
                            const VideoFormatInfo* inputFormat, const VideoFormatInfo* outputFormat,
                            int useRect) {
    return {input, output, inputFormat, outputFormat, useRect == 1};
}

bool OpenPictures(const PictureArgs& args, Pictures* pictures, const Region* outSize) {
    if (!args.input || !args.output || !args.inputFormat || !args.outputFormat) return false;
    const VideoFormatInfo& inF = *args.inputFormat;
    const VideoFormatInfo& outF = *args.outputFormat;
    Region inRegion, outRegion;
    if (!ProcessingRegion(inF, inF, args.useRect, &inRegion) ||
        !ProcessingRegion(outF, inF, args.useRect, &outRegion)) {
        return false;
    }
    if (outSize) {
        outRegion.width = outSize->width;
        outRegion.height = outSize->height;
    }
    auto* inBase = static_cast<uint8_t*>(args.input->GetAddress());
    auto* outBase = static_cast<uint8_t*>(args.output->GetAddress());
    if (!inBase || !outBase) return false;
    Pictures p;
    if (!GetPlanes(inF, inBase, inRegion, &p.in) || !GetPlanes(outF, outBase, outRegion, &p.out))
        return false;
    p.inCode = inF.nCodecSubType;
    p.outCode = outF.nCodecSubType;
    p.width = inRegion.width;
    p.height = inRegion.height;
    *pictures = p;
    return true;
}

void FlipPlanes(PlaneSet* planes) {
    planes->plane0 = FlipRows(planes->plane0);
    if (planes->count > 1) planes->u = FlipRows(planes->u);
    if (planes->count > 2) planes->v = FlipRows(planes->v);
}

ConvertSettings ReadConvertSettings(const CNVideoProcessor::ConvertConfigTag* config) {
    ConvertSettings s;
    if (!config) return s;
    const CNVideoProcessor::ConvertConfigTag& c = *config;
    if (c.nFixedChroma != 0) {
        s.mode = ConvertMode::kFixedChroma;
    } else if (c.nOffsetY != 0 || c.nOffsetU != 0 || c.nOffsetV != 0 || c.nGainY != 256 ||
               c.nGainU != 256 || c.nGainV != 256) {
        s.mode = ConvertMode::kAdjust;
    }
    s.flip = c.nFlip == 1;
    s.fixedU = static_cast<uint8_t>(c.nFixedU);
    s.fixedV = static_cast<uint8_t>(c.nFixedV);
    s.alpha = static_cast<uint8_t>(c.nAlpha);
    s.luma = MakeLumaAdjust(c.nGainY, c.nOffsetY);
    s.u = MakeChromaAdjust(c.nGainU, c.nOffsetU);
    s.v = MakeChromaAdjust(c.nGainV, c.nOffsetV);
    return s;
}

void NeutralChroma(const ConvertSettings& settings, const YuvRowKernels& k, uint8_t* u,
                   uint8_t* v) {
    const uint8_t neutral = 128;
    switch (settings.mode) {
        case ConvertMode::kPlain:
            *u = *v = neutral;
            break;
        case ConvertMode::kAdjust:
            k.adjust(&neutral, u, settings.u, 1);
            k.adjust(&neutral, v, settings.v, 1);
            break;
        case ConvertMode::kFixedChroma:
            *u = settings.fixedU;
            *v = settings.fixedV;
            break;
    }
}

}  // namespace ncb::video
