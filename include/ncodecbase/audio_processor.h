// CNAudioProcessor: the audio processing operations of the library, all
// static and without hidden state.
//
// - Sample kernels: widening 8/24-bit PCM to 16 bits, de-interleaving,
//   dropping channels without a speaker, peak measurement, fixed-point
//   down-mix (Q14 coefficients) and interleaving to the device layout with an
//   optional Q8 volume factor.
// - A 12-band octave graphic equalizer, a polyphase Kaiser-windowed sinc
//   resampler and a fixed-splice tempo changer (rate control). Their state
//   lives in a CNCodecBuffer the caller owns: the ...Init operation fills it,
//   the processing operations take it back and ...Uninit frees its memory.
//
// Samples are signed 16-bit; 8-bit input is signed bytes, 16- and 24-bit input
// signed little-endian. The last argument of the kernels, `level`, is the
// processor level (0 SSE2, 1 SSSE3, 2 SSE4.1) and only chooses instruction
// sequences: every level gives the bits of the scalar code. Callers pass a
// level the running processor supports.
//
// Thread safety: the functions touch only their arguments; a state buffer is
// used by one thread at a time. Failures: the int results are 1 on success
// and 0 on failure as documented per function; the sample kernels return
// nothing and write nothing for counts below 1.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNAudioProcessor {
  public:
    // Header of the rate-control state at the start of its state memory
    // (64 bytes, 4-byte packed so the counters keep their order). Positions
    // of the pending frames and the fade tables are byte offsets from the
    // header, so a state survives being moved with its buffer.
#pragma pack(push, 4)
    struct RateControlDataInfoTag {
        int32_t nStereo;         // 0 mono, 1 interleaved stereo
        int32_t nLevel;          // the processor level given to Init
        int32_t nInputRate;      // R
        int32_t nTargetRate;     // T; tempo factor R / T
        int32_t nHighPass;       // 1: high-pass the output when T > R
        int32_t nBlockFrames;    // W = R x 20 / 1000
        int32_t nFadeFrames;     // O = R x 5 / 1000, a multiple of 4
        int32_t nPendingFrames;  // p: input frames waiting for a full block
        int32_t nPendingOffset;  // W frames of 16-bit samples
        int32_t nFadeInOffset;   // O floats, k / O
        int32_t nFadeOutOffset;  // O floats, 1 - k / O
        int64_t nInputConsumed;  // counters since Init or Reset
        int64_t nOutputProduced;
        int32_t nBlocksProcessed;
    };
#pragma pack(pop)

    // ---- Width conversion and layout ----
    static void DirectCopy(unsigned char* src, unsigned char* dst, int bytes, int level);
    // dst[i] = src[i] x 256 (signed bytes).
    static void Convert8BitsTo16Bits(unsigned char* src, short* dst, int count, int level);
    // dst[i] = the upper two bytes of 3-byte sample i.
    static void Convert24BitsTo16Bits(unsigned char* src, short* dst, int count, int level);
    // Interleaved to planar (plane c at c x frames); 2 to 6 channels, else
    // nothing is written.
    static void Convert8BitsTo16Bits_Demux(unsigned char* src, short* dst, int frames, int channels,
                                           int level);
    static void Convert24BitsTo16Bits_Demux(unsigned char* src, short* dst, int frames,
                                            int channels, int level);
    // Each input frame holds kept + extra channels; the first kept are
    // widened and written interleaved (or planar for _Demux).
    static void Convert8BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst, int frames,
                                                        int kept, int extra, int level);
    static void Convert16BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst, int frames,
                                                         int kept, int extra, int level);
    static void Convert24BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst, int frames,
                                                         int kept, int extra, int level);
    static void Convert8BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src, short* dst,
                                                              int frames, int kept, int extra,
                                                              int level);
    static void Convert16BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src, short* dst,
                                                               int frames, int kept, int extra,
                                                               int level);
    static void Convert24BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src, short* dst,
                                                               int frames, int kept, int extra,
                                                               int level);

    // ---- Peaks ----
    // The larger of `previous` and the largest 16-bit absolute value; -32768
    // has none and never raises the peak.
    static short CalcMaxAbs(short* src, int count, short previous, int level);
    // Interleaved stereo; each peak is raised when its channel's is larger.
    static void CalcMaxAbs_Stereo(short* src, int frames, short* maxLeft, short* maxRight,
                                  int level);

    // ---- Down-mix: out[i] = saturate((sum of in_k[i] x c_k) >> 14) ----
    static void DownmixChannel_1(short* in1, short c1, short* out, int frames, int level);
    static void DownmixChannel_2(short* in1, short c1, short* in2, short c2, short* out, int frames,
                                 int level);
    static void DownmixChannel_3(short* in1, short c1, short* in2, short c2, short* in3, short c3,
                                 short* out, int frames, int level);
    static void DownmixChannel_4(short* in1, short c1, short* in2, short c2, short* in3, short c3,
                                 short* in4, short c4, short* out, int frames, int level);
    static void DownmixChannel_5(short* in1, short c1, short* in2, short c2, short* in3, short c3,
                                 short* in4, short c4, short* in5, short c5, short* out, int frames,
                                 int level);

    // ---- Interleaving planes to the device layout ----
    static void ConvertToDest_2(short* ch0, short* ch1, short* dst, int frames, int level);
    static void ConvertToDest_3(short* ch0, short* ch1, short* ch2, short* dst, int frames,
                                int level);
    static void ConvertToDest_4(short* ch0, short* ch1, short* ch2, short* ch3, short* dst,
                                int frames, int level);
    static void ConvertToDest_5(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                short* dst, int frames, int level);
    static void ConvertToDest_6(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                short* ch5, short* dst, int frames, int level);
    // With volume: saturate((sample x volume) >> 8), volume in Q8.
    static void ConvertToDest_1_Adjust(short* src, short volume, short* dst, int frames, int level);
    static void ConvertToDest_2_Adjust(short* ch0, short* ch1, short volume, short* dst, int frames,
                                       int level);
    static void ConvertToDest_3_Adjust(short* ch0, short* ch1, short* ch2, short volume, short* dst,
                                       int frames, int level);
    static void ConvertToDest_4_Adjust(short* ch0, short* ch1, short* ch2, short* ch3, short volume,
                                       short* dst, int frames, int level);
    static void ConvertToDest_5_Adjust(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                       short volume, short* dst, int frames, int level);
    static void ConvertToDest_6_Adjust(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                       short* ch5, short volume, short* dst, int frames, int level);
    // Interleaved stereo in, one channel to both outputs.
    static void ConvertToDest_2Mux_Left(short* src, short* dst, int frames, int level);
    static void ConvertToDest_2Mux_Right(short* src, short* dst, int frames, int level);
    static void ConvertToDest_2Mux_Left_Adjust(short* src, short volume, short* dst, int frames,
                                               int level);
    static void ConvertToDest_2Mux_Right_Adjust(short* src, short volume, short* dst, int frames,
                                                int level);

    // ---- Equalizer: up to 12 one-octave band-pass bands ----
    // Bands whose frequency exceeds half the rate are dropped. Gains are
    // linear factors; output = 0.25 x input + sum of gain x band output.
    // 0 when the state memory cannot be allocated or a band has no filter.
    static int EqualizerInit(int sampleRate, int bandCount, int* frequencies, float* gains,
                             int stereo, int level, CNCodecBuffer* state);
    // In place, or from input to output; frames count stereo pairs once.
    static int EqualizerFilter(short* samples, int frames, CNCodecBuffer* state);
    static int EqualizerFilter(short* input, int frames, CNCodecBuffer* state, short* output);
    // One gain per kept band, in the order of the kept bands; histories kept.
    static int EqualizerConfig(float* gains, CNCodecBuffer* state);
    static int EqualizerReset(CNCodecBuffer* state);
    static int EqualizerUninit(CNCodecBuffer* state);
    // The per-frame filter for frames the 4-frame blocks leave over; `state`
    // is the state buffer's memory.
    static void ProcessFraqSamplesMono(short* input, short* output, int frames,
                                       unsigned char* state);
    static void ProcessFraqSamplesStereo(short* input, short* output, int frames,
                                         unsigned char* state);

    // ---- Resampler ----
    // channels 1 or 2 (interleaved); both rates positive. 0 when the state
    // memory cannot be allocated.
    static int AccurateResampleInit(int inRate, int outRate, int channels, int level,
                                    CNCodecBuffer* state);
    // Consumes the whole input; the output gets the complete blocks (data
    // size, possibly 0) and, as user data, the delay of its first frame in
    // input frames. 0 only when the output cannot be allocated (state then
    // unchanged).
    static int AccurateResample(CNCodecBuffer* input, CNCodecBuffer* output, CNCodecBuffer* state);
    // As AccurateResample, then one more block from the zero-padded history.
    static int AccurateResampleLast(CNCodecBuffer* input, CNCodecBuffer* output,
                                    CNCodecBuffer* state);
    // One final zero-padded block into `output` (may be null), then frees the
    // state memory; 0 when the output cannot be allocated.
    static int AccurateResampleUninit(CNCodecBuffer* output, CNCodecBuffer* state);

    // ---- Rate control (tempo change without pitch change) ----
    // Tempo factor inRate / targetRate. 0 when the block or fade length would
    // be below one frame (inRate below 800) or memory runs out.
    static int RateControlInit(int inRate, int targetRate, int stereo, int level, int highPass,
                               CNCodecBuffer* state);
    // flush 1 pads the input (grown through Allocate) to whole blocks. The
    // output's user data is the number of older frames before the new input.
    // 0 only when the output or the padded input cannot be allocated.
    static int RateControlFilter(CNCodecBuffer* input, CNCodecBuffer* output, int flush,
                                 CNCodecBuffer* state);
    static int RateControlReset(CNCodecBuffer* state);
    static int RateControlUninit(CNCodecBuffer* state);
    // One block of W frames into outFrames output frames.
    static void RateControlConvertOnce(short* block, short* output, int outFrames,
                                       RateControlDataInfoTag* state);
    // Fixed high-pass filter, in place, from a zero filter state.
    static void HighPassFilterMono(short* samples, int frames);
    static void HighPassFilterStereo(short* samples, int frames);
};

static_assert(sizeof(CNAudioProcessor::RateControlDataInfoTag) == 64);
static_assert(offsetof(CNAudioProcessor::RateControlDataInfoTag, nPendingFrames) == 28);
static_assert(offsetof(CNAudioProcessor::RateControlDataInfoTag, nInputConsumed) == 44);
static_assert(offsetof(CNAudioProcessor::RateControlDataInfoTag, nBlocksProcessed) == 60);
