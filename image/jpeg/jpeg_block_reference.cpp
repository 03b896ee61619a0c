// CNJpegCodec::DecodeOneCoeffMatrixAsm: one baseline block through the bit
// reader's own table walks over the cache records, step by step as the
// format describes it. The scan decoders use faster tables of their own;
// this path is what they are checked against.
#include "image/jpeg/jpeg_huffman_cache.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/read_bit_stream.h"

namespace {

using ncb::jpeg::HuffmanRecord;

const uint8_t* Bytes(const HuffmanRecord* r, int pos) {
    return reinterpret_cast<const uint8_t*>(r) + pos;
}

int DcSize(CNReadBitStream* bs, const HuffmanRecord* t) {
    const int index =
        bs->GetHuffman8(t->nPeekBits, t->nSymbolCount, t->nLevels, t->nShifts, t->uMasks,
                        t->nDataShift, static_cast<unsigned char>(t->uLenMask),
                        reinterpret_cast<const int*>(Bytes(t, t->nSubTablePos)),
                        reinterpret_cast<const signed char*>(Bytes(t, t->nTablePos)));
    if (index < 0 || index >= t->nSymbolCount) return 0;
    return ncb::jpeg::RecordSymbols(t)[index];
}

int AcSymbol(CNReadBitStream* bs, const HuffmanRecord* t) {
    const int value = bs->GetHuffman16Once(t->nPeekBits, t->nSymbolCount, t->nDataShift,
                                           static_cast<unsigned short>(t->uLenMask),
                                           reinterpret_cast<const short*>(Bytes(t, t->nTablePos)));
    if (value == t->nSymbolCount) return 0;
    return ncb::jpeg::RecordSymbols(t)[value & 0xFF];
}

int ReadExtended(CNReadBitStream* bs, int s) {
    int v = static_cast<int>(bs->GetAndRemoveBitsUint32(s));
    if (s < 12) {
        if (v < CNJpegCodec::s_uCoeffNegTable[s]) v -= CNJpegCodec::s_uCoeffMaskTable[s];
    } else if (v < (1 << (s - 1))) {
        v -= (1 << s) - 1;
    }
    return v;
}

}  // namespace

int CNJpegCodec::DecodeOneCoeffMatrixAsm(CNReadBitStream* reader, short* block,
                                         const HuffmanTableTag* dcTable,
                                         const HuffmanTableTag* acTable, short* dcPredictor) {
    if (!reader || !block || !dcTable || !acTable || !dcPredictor) return 0;
    const int s = DcSize(reader, dcTable);
    if (s > 11) {
        reader->SetError();
    } else if (s > 0) {
        *dcPredictor = static_cast<short>(*dcPredictor + ReadExtended(reader, s));
    }
    block[0] = *dcPredictor;
    for (int k = 1; k < 64;) {
        const int rs = AcSymbol(reader, acTable);
        const int size = rs & 15;
        if (size) {
            k += rs >> 4;
            if (k >= 64) break;
            block[s_uJpegZigZagReserveScanTable[k]] =
                static_cast<short>(ReadExtended(reader, size));
            ++k;
        } else {
            if (rs == 0) break;
            k += 16;
        }
    }
    return reader->IsError() ? 0 : 1;
}
