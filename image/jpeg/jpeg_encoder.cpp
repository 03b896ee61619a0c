// CNJpegCodec::Encode: one planar YUV picture as a baseline JFIF 1.02 stream
// with fixed quantisation tables (three quality levels) and the standard
// Huffman tables.
//
// Layout of the output: SOI, APP0, one DQT with both tables, SOF0, one DHT
// with all four tables, SOS, the entropy-coded data, EOI. The headers go
// through the byte writer, the data through the bit writer in JPEG mode
// (which stuffs 00 after FF); the data's writer stops two bytes short of the
// buffer's end so that EOI always has room. The output is sized once to the
// raw picture plus 1024 bytes, so a picture that does not compress (noise at
// the highest quality) fails with 0 instead of growing the buffer.
//
// Not done: restart markers, optimised Huffman tables, progressive output,
// caller-chosen tables. Edge blocks read the caller's pixels past the
// rectangle (up to the 8- or 16-rounded size) rather than replicating edge
// samples.
#include <climits>
#include <cstdint>

#include "base/video_format.h"
#include "image/jpeg/jpeg_encoder_scan.h"
#include "image/jpeg/jpeg_fdct.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/write_bit_stream.h"
#include "ncodecbase/write_byte_stream.h"

namespace {

constexpr int kExtraRoom = 1024;
constexpr int kMaxDimension = 65535;  // SOF0 holds 16-bit sizes

struct Sampling {
    int blocksX, blocksY;  // luma blocks per MCU
    int components;
    uint8_t lumaFactors;  // SOF0 sampling byte of component 1
};

bool SamplingFor(int code, Sampling* out) {
    switch (code) {
        case VIDEO_FORMAT_Y800:
            *out = {1, 1, 1, 0x11};
            return true;
        case VIDEO_FORMAT_YUV420:
            *out = {2, 2, 3, 0x22};
            return true;
        case VIDEO_FORMAT_YUV422:
            *out = {2, 1, 3, 0x21};
            return true;
        case VIDEO_FORMAT_YUV444:
            *out = {1, 1, 3, 0x11};
            return true;
        default:
            return false;
    }
}

struct QualityTables {
    const uint8_t* dqtY;
    const uint8_t* dqtUV;
    const int16_t* recipY;
    const int16_t* recipUV;
};

QualityTables TablesFor(int quality) {
    using C = CNJpegCodec;
    switch (quality) {
        case 0:
            return {C::s_uStreamQuantMatrixY.data(), C::s_uStreamQuantMatrixUV.data(),
                    C::s_uQuantMatrixAsmY.data(), C::s_uQuantMatrixAsmUV.data()};
        case 1:
            return {C::s_uStreamQuantMatrixYQuality.data(), C::s_uStreamQuantMatrixUVQuality.data(),
                    C::s_uQuantMatrixAsmYQuality.data(), C::s_uQuantMatrixAsmUVQuality.data()};
        default:
            return {C::s_uStreamQuantMatrixYQualityHigh.data(),
                    C::s_uStreamQuantMatrixUVQualityHigh.data(),
                    C::s_uQuantMatrixAsmYQualityHigh.data(),
                    C::s_uQuantMatrixAsmUVQualityHigh.data()};
    }
}

// Raw picture bytes plus the fixed extra room; 0 when it does not fit an int.
int OutputRoom(int code, int width, int height) {
    const int64_t area = static_cast<int64_t>(width) * height;
    int64_t raw = area;
    if (code == VIDEO_FORMAT_YUV420) raw = 3 * area / 2;
    if (code == VIDEO_FORMAT_YUV422) raw = 2 * area;
    if (code == VIDEO_FORMAT_YUV444) raw = 3 * area;
    const int64_t room = raw + kExtraRoom;
    return room > INT_MAX ? 0 : static_cast<int>(room);
}

void WriteBytes(CNWriteByteStream* w, const uint8_t* bytes, int count) {
    for (int i = 0; i < count; ++i) w->WriteUint8(bytes[i]);
}

void WriteHeaders(CNWriteByteStream* w, const ncb::VideoFormatInfo& in, const Sampling& s,
                  const QualityTables& q) {
    using C = CNJpegCodec;
    static constexpr uint8_t kApp0[] = {0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0,
                                        1,    2,    0, 0,  1,   0,   1,   0,   0};
    w->WriteUint16(0xFFD8);
    WriteBytes(w, kApp0, sizeof(kApp0));

    w->WriteUint16(0xFFDB);
    w->WriteUint16(132);
    w->WriteUint8(0x00);
    WriteBytes(w, q.dqtY, 64);
    w->WriteUint8(0x01);
    WriteBytes(w, q.dqtUV, 64);

    const bool colour = s.components == 3;
    w->WriteUint16(0xFFC0);
    w->WriteUint16(colour ? 17 : 11);
    w->WriteUint8(8);
    w->WriteUint16(static_cast<uint16_t>(in.nRectBottom));
    w->WriteUint16(static_cast<uint16_t>(in.nRectRight));
    w->WriteUint8(static_cast<uint8_t>(s.components));
    const uint8_t components[3][3] = {{1, s.lumaFactors, 0}, {2, 0x11, 1}, {3, 0x11, 1}};
    for (int c = 0; c < s.components; ++c) WriteBytes(w, components[c], 3);

    struct Dht {
        uint8_t classId;
        const uint8_t* counts;
        const uint8_t* symbols;
        int symbolCount;
    };
    const Dht tables[4] = {
        {0x00, C::s_uDefDcHuffmanCodeNumY.data(), C::s_uDefDcHuffmanCodeValueY.data(), 12},
        {0x01, C::s_uDefDcHuffmanCodeNumUV.data(), C::s_uDefDcHuffmanCodeValueUV.data(), 12},
        {0x10, C::s_uDefAcHuffmanCodeNumY.data(), C::s_uDefAcHuffmanCodeValueY.data(), 162},
        {0x11, C::s_uDefAcHuffmanCodeNumUV.data(), C::s_uDefAcHuffmanCodeValueUV.data(), 162}};
    w->WriteUint16(0xFFC4);
    w->WriteUint16(418);
    for (const Dht& t : tables) {
        w->WriteUint8(t.classId);
        WriteBytes(w, t.counts, 16);
        WriteBytes(w, t.symbols, t.symbolCount);
    }

    w->WriteUint16(0xFFDA);
    w->WriteUint16(colour ? 12 : 8);
    w->WriteUint8(static_cast<uint8_t>(s.components));
    const uint8_t selectors[3][2] = {{1, 0x00}, {2, 0x11}, {3, 0x11}};
    for (int c = 0; c < s.components; ++c) WriteBytes(w, selectors[c], 2);
    w->WriteUint8(0);
    w->WriteUint8(63);
    w->WriteUint8(0);
}

void FillDescriptor(const ncb::VideoFormatInfo& in, ncb::VideoFormatInfo* out) {
    *out = {};
    out->nStructSize = sizeof(ncb::VideoFormatInfo);
    out->nCodecType = VIDEO_TYPE_JPEG;
    out->nCodecSubType = VIDEO_FORMAT_JPEG;
    out->nWidth = in.nWidth;
    out->nHeight = in.nHeight;
    out->nRectLeft = in.nRectLeft;
    out->nRectRight = in.nRectRight;
    out->nRectTop = in.nRectTop;
    out->nRectBottom = in.nRectBottom;
    out->nPictureWidth = out->nDisplayWidth = in.nRectRight - in.nRectLeft;
    out->nPictureHeight = out->nDisplayHeight = in.nRectBottom - in.nRectTop;
}

bool RectangleAccepted(const ncb::VideoFormatInfo& f) {
    return f.nRectLeft == 0 && f.nRectTop == 0 && f.nRectRight > 0 && f.nRectBottom > 0 &&
           f.nRectRight <= f.nWidth && f.nRectBottom <= f.nHeight &&
           f.nRectRight <= kMaxDimension && f.nRectBottom <= kMaxDimension;
}

int RoundUp(int v, int m) { return (v + m - 1) / m * m; }

// The scan description: MCU grid over the rounded area and each component's
// first sample, pitch and tables.
ncb::jpeg::EncodeScan DescribeScan(const ncb::VideoFormatInfo& in, const ncb::FrameLayout& frame,
                                   uint8_t* pixels, const Sampling& s, const QualityTables& q,
                                   const ncb::jpeg::FdctKernels& kernels) {
    using C = CNJpegCodec;
    ncb::jpeg::EncodeScan scan;
    scan.lumaBlocksX = s.blocksX;
    scan.lumaBlocksY = s.blocksY;
    scan.components = s.components;
    scan.mcuColumns = RoundUp(in.nRectRight, 8 * s.blocksX) / (8 * s.blocksX);
    scan.mcuRows = RoundUp(in.nRectBottom, 8 * s.blocksY) / (8 * s.blocksY);
    scan.kernels = &kernels;

    ncb::jpeg::EncodeComponent& y = scan.component[0];
    y.plane = pixels + in.nPadTop * frame.pitch0 + in.nPadLeft;
    y.pitch = static_cast<ptrdiff_t>(frame.pitch0);
    y.recip = q.recipY;
    y.dcCodes = C::s_uHuffw16s_JpegDefaultDcHuffmanTableYData.data();
    y.acCodes = C::s_uHuffw32s_JpegDefaultAcHuffmanTableYData.data();
    if (s.components == 3) {
        const int64_t first = in.nChromaPadTop * frame.chromaPitch + in.nChromaPadLeft;
        const int64_t planes[2] = {frame.uPlane, frame.vPlane};
        for (int c = 1; c < 3; ++c) {
            ncb::jpeg::EncodeComponent& chroma = scan.component[c];
            chroma.plane = pixels + planes[c - 1] + first;
            chroma.pitch = static_cast<ptrdiff_t>(frame.chromaPitch);
            chroma.recip = q.recipUV;
            chroma.dcCodes = C::s_uHuffw16s_JpegDefaultDcHuffmanTableUVData.data();
            chroma.acCodes = C::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData.data();
        }
    }
    return scan;
}

}  // namespace

int CNJpegCodec::Encode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                        unsigned char* pixels, CNCodecBuffer* output, int quality,
                        int kernelSelect) {
    Sampling sampling;
    ncb::video::KernelSet set;
    ncb::FrameLayout frame;
    if (!inFormat || !outFormat || !pixels || !output || quality < 0 || quality > 2 ||
        !ncb::video::KernelSetForLevel(kernelSelect, &set) ||
        !SamplingFor(inFormat->nCodecSubType, &sampling) || !RectangleAccepted(*inFormat) ||
        !ncb::GetFrameLayout(*inFormat, &frame)) {
        return 0;
    }
    const int room = OutputRoom(inFormat->nCodecSubType, inFormat->nWidth, inFormat->nHeight);
    auto* out = room > 0 ? static_cast<unsigned char*>(output->Allocate(room, 4, 0)) : nullptr;
    if (!out) return 0;
    output->SetDataSize(0);

    const QualityTables tables = TablesFor(quality);
    NDataStreamBufferInfoTag whole = {out, room};
    CNWriteByteStream headers;
    headers.Init(2, &whole, 1);
    WriteHeaders(&headers, *inFormat, sampling, tables);
    const int headerBytes = headers.GetCurPos();

    NDataStreamBufferInfoTag data = {out + headerBytes, room - headerBytes - 2};
    CNWriteBitStream bits;
    bits.Init(3, 1, &data, 1, 0);
    const ncb::jpeg::EncodeScan scan =
        DescribeScan(*inFormat, frame, pixels, sampling, tables, ncb::jpeg::FdctKernelsFor(set));
    ncb::jpeg::EncodeScanData(scan, &bits);
    int written = 0, inserted = 0;
    const int bitsOk = bits.Uninit(3, &written, &inserted);

    headers.SetCurPos(headerBytes + (written + inserted) / 8);
    headers.WriteUint16(0xFFD9);
    const int length = headers.GetCurPos();
    if (!bitsOk || !headers.Uninit()) return 0;
    output->SetDataSize(length);
    FillDescriptor(*inFormat, outFormat);
    return 1;
}
