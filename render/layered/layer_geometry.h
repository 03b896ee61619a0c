// Geometry of the layered render as pure functions: where the video lies in a
// video layer, the margin bands around it, the subtitle boxes, and how a
// mapping turns a part of a layer into a viewport and clip-space quads on the
// target. Also the choice of pixel shader and constants for a mapping.
//
// Kept free of device and list types so that every rule can be checked
// against hand-computed numbers. Quads list their corners in triangle-strip
// order: top-left, top-right, bottom-left, bottom-right. Nothing here
// allocates or caches; the render keeps the results.
#pragma once

#include <cstdint>

namespace ncb::layered {

struct PixelRect {
    int x = 0, y = 0, w = 0, h = 0;
};

enum Corner { kTopLeft = 0, kTopRight = 1, kBottomLeft = 2, kBottomRight = 3 };

struct Quad {
    float x[4] = {};
    float y[4] = {};
};

struct TexQuad {
    float u[4] = {};
    float v[4] = {};
};

// Texture coordinates of a whole texture shifted by half a texel, so that a
// 1:1 quad samples each texel at its centre.
TexQuad HalfTexelCoords(int width, int height);

// Layer flags that the geometry reads.
constexpr unsigned kLayerVideo = 0x1;
constexpr unsigned kLayerPixels = 0x2;
constexpr unsigned kLayerIntoStatic = 0x8;
constexpr unsigned kLayerCrop = 0x10;
constexpr unsigned kLayerKeepAspect = 0x20;
constexpr unsigned kLayer4x3 = 0x40;
constexpr unsigned kLayer16x9 = 0x80;
constexpr unsigned kLayerVisible = 0x100;
constexpr unsigned kLayerCentre = 0x200;
constexpr unsigned kLayerTextBottom = 0x400;
constexpr unsigned kLayerTextInside = 0x800;

struct VideoAreaInput {
    int layerWidth = 0, layerHeight = 0;
    int left = 0, right = 0, top = 0, bottom = 0;  // margins in pixels
    unsigned layerFlags = 0;
    int aspectX = 1, aspectY = 1;  // the video's display aspect
    bool hasPicture = false;
};

// False (rectangle invalid) without a picture or without room inside the margins.
bool CalcVideoRect(const VideoAreaInput& in, PixelRect* video);

struct MarginBands {
    PixelRect band[4];  // top, bottom, left, right
    unsigned mask = 0;  // bits 1, 2, 4, 8 in that order
};

MarginBands CalcMarginBands(int layerWidth, int layerHeight, uint32_t layerColour, bool videoValid,
                            const PixelRect& video);

// Turns of the picture by the video flags 0x30 (quarter turns clockwise) and
// mirrors by 0x100 (top-bottom) and 0x200 (left-right), applied to the
// coordinates of a whole texture.
TexQuad OrientTexCoords(float u0, float v0, float u1, float v1, unsigned videoFlags);

// The display aspect of a picture: its display size when both words are
// positive, else its size; exchanged for the quarter turns 0x10 and 0x30.
void VideoAspect(int width, int height, int displayWidth, int displayHeight, unsigned videoFlags,
                 int* aspectX, int* aspectY);

struct PixelSubTitleInput {
    int pieceX = 0, pieceY = 0;           // the piece's own position
    int pieceWidth = 0, pieceHeight = 0;  // its texture size
    int canvasWidth = 0, canvasHeight = 0;
    int pictureWidth = 0, pictureHeight = 0;  // the video's, before turning
    float scale = 1.0f;
    int value1 = 0, value2 = 0, value3 = 0;  // value1 1: ignore the piece position
    unsigned videoFlags = 0;
};

// The box of a bitmap subtitle in layer pixels: placed in the picture,
// turned with it, then carried onto the video rectangle. False when it has
// no area.
bool CalcPixelSubTitleRect(const PixelSubTitleInput& in, const PixelRect& video, PixelRect* box);

struct TextPiece {
    int width = 0, height = 0;
    double size = 0.0;  // rows the piece was rendered at
};

struct TextSlotResult {
    int piece = -1;  // -1: the slot shows nothing
    PixelRect box;
};

// Lays out the four text slots; pieces[slot] lists pieceCount[slot] pieces.
// exactOnly is configuration flag 0x100.
void CalcTextSubTitleLayout(const TextPiece* const pieces[4], const int pieceCount[4],
                            int layerWidth, int layerHeight, int textPosition, int textHeight,
                            unsigned layerFlags, bool exactOnly, TextSlotResult out[4]);

// One mapping's placement on a target of size targetWidth x targetHeight.
struct MappingPlacement {
    bool empty = true;
    PixelRect viewport;
    Quad base;
    float cx = 0.0f, cy = 0.0f;
};

MappingPlacement PlaceMapping(const PixelRect& source, const PixelRect& dest, int targetWidth,
                              int targetHeight);

// The quad of an element (layer pixels) seen through a mapping.
Quad ElementQuad(const MappingPlacement& placement, const PixelRect& source,
                 const PixelRect& element);

// Mirrors (mapping flags 0x1, 0x2) and turns (degrees, clockwise) about the
// centre of the mapping's destination.
void OrientQuad(Quad* quad, float cx, float cy, int mappingFlags, int degrees);

// Draw flags of a mapping.
constexpr unsigned kDrawFlipWinding = 0x1;
constexpr unsigned kDrawBlend = 0x2;
constexpr unsigned kDrawVideoTwoConstants = 0x4;
constexpr unsigned kDrawSubTitleTwoConstants = 0x8;
constexpr unsigned kDrawTexSetShift = 4;  // bits 0x30
constexpr unsigned kDrawEmpty = 0x40;
constexpr unsigned kDrawTintedPlanes = 0x80;

// Texture layouts of a video's picture.
enum class TextureLayout { kNone, kRgb, kYuv, kThreePlanes, kTwoPlanes };

struct ShaderChoice {
    int shader = 0;
    float c0[4] = {};
    float c1[4] = {};
    bool twoConstants = false;
};

struct VideoShaderInput {
    TextureLayout layout = TextureLayout::kRgb;
    unsigned alphaMode = 0;  // video flags & 0xE
    bool tint = false;       // video flag 0x400 or mapping flag 0x4
    bool tintFromMapping = false;
    int constantAlpha = 256;  // the video's (256 with no constant alpha)
    int mappingAlpha = 255;
    int tintU = 128, tintV = 128;                  // the ones that apply
    int lumaOffset = 0, uOffset = 0, vOffset = 0;  // video words plus mapping words
    int lumaGain = 256, uGain = 256, vGain = 256;
};

ShaderChoice ChooseVideoShader(const VideoShaderInput& in);

// Shader of subtitle quads and of static layers through a mapping (12, 15 or
// 18); add 9 for a piece whose texture holds YUV.
ShaderChoice ChooseOverlayShader(int mappingFlags, int mappingAlpha, int tintU, int tintV,
                                 int lumaOffset, int uOffset, int vOffset);

}  // namespace ncb::layered
