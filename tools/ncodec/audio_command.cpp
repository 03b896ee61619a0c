// `ncodec audio IN.wav OUT.wav [options]`: runs a WAV file through the audio
// chain (down-mix, equalizer, tempo, resampling, volume) in pieces, as
// playback would, and writes 16-bit PCM. Long files get a progress bar on a
// terminal.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/ncodec/audio_chain.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/wav_file.h"

namespace ncodec {
namespace {

constexpr int kPieceFrames = 4096;
constexpr int kProgressSeconds = 30;  // files longer than this show a bar

bool ParseNumber(const std::string& text, double* value) {
    char* end = nullptr;
    errno = 0;
    *value = std::strtod(text.c_str(), &end);
    return errno == 0 && end && *end == '\0' && !text.empty() && std::isfinite(*value);
}

bool ParseInt(const std::string& text, int* value) {
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 0);  // 0x3F works for masks
    if (errno || !end || *end || text.empty() || v < -2147483647L || v > 2147483647L) return false;
    *value = static_cast<int>(v);
    return true;
}

// "f1:w1,f2:w2,..."
bool ParseEq(const std::string& text, std::vector<std::pair<int, float>>* bands) {
    size_t at = 0;
    while (at <= text.size()) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string item = text.substr(at, comma - at);
        const size_t colon = item.find(':');
        int f;
        double w;
        if (colon == std::string::npos || !ParseInt(item.substr(0, colon), &f) ||
            !ParseNumber(item.substr(colon + 1), &w))
            return false;
        bands->push_back({f, static_cast<float>(w)});
        at = comma + 1;
    }
    return !bands->empty();
}

struct Request {
    std::string in, out;
    AudioChainOptions options;
};

bool Usage(const std::string& why) {
    std::fprintf(stderr, "ncodec audio: %s\n", why.c_str());
    std::fprintf(stderr,
                 "usage: ncodec audio IN.wav OUT.wav [--rate HZ] [--tempo X] [--eq F:W,...]\n"
                 "                    [--downmix MASK] [--volume X]\n"
                 "  --eq F:W     one-octave band at F Hz with weight W (up to 12 bands);\n"
                 "               output = 0.25 x input + sum of W x band, so 0.75 keeps a\n"
                 "               band's centre near unity\n"
                 "  --downmix M  output speaker mask, e.g. 0x3 stereo, 0x4 mono\n"
                 "  --tempo X    speed factor, pitch kept (1.25 faster, 0.8 slower)\n");
    return false;
}

bool ParseArgs(const Args& args, Request* r) {
    std::vector<std::string> positional;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        double number = 0;
        if (a == "--rate" && hasValue) {
            if (!ParseInt(args[++i], &r->options.rate) || r->options.rate < 1)
                return Usage("--rate needs a positive number of Hz");
        } else if (a == "--tempo" && hasValue) {
            if (!ParseNumber(args[++i], &number) || number < 0.05 || number > 20)
                return Usage("--tempo needs a factor between 0.05 and 20");
            r->options.tempo = number;
        } else if (a == "--eq" && hasValue) {
            if (!ParseEq(args[++i], &r->options.eq)) return Usage("--eq needs F:W,F:W,...");
        } else if (a == "--downmix" && hasValue) {
            if (!ParseInt(args[++i], &r->options.downmixMask) || r->options.downmixMask <= 0)
                return Usage("--downmix needs a speaker mask such as 0x3");
        } else if (a == "--volume" && hasValue) {
            if (!ParseNumber(args[++i], &number) || number < 0 || number > 127)
                return Usage("--volume needs a factor between 0 and 127");
            r->options.volume = number;
        } else if (a.starts_with("--")) {
            return Usage("unexpected option '" + a + "'");
        } else {
            positional.push_back(a);
        }
    }
    if (positional.size() != 2) return Usage("needs IN.wav and OUT.wav");
    r->in = positional[0];
    r->out = positional[1];
    return true;
}

class Progress {
  public:
    explicit Progress(bool shown) : m_shown(shown) {}
    void Show(double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (!m_shown || percent == m_last) return;
        m_last = percent;
        const int filled = percent / 5;
        std::fprintf(stderr, "\rncodec audio: [%.*s%*s] %3d%%", filled, "####################",
                     20 - filled, "", percent);
        if (percent == 100) std::fputc('\n', stderr);
        std::fflush(stderr);
    }

  private:
    bool m_shown;
    int m_last = -1;
};

}  // namespace

int RunAudio(const Args& args) {
    Request r;
    if (!ParseArgs(args, &r)) return 2;
    WavAudio wav;
    std::string error;
    if (!ReadWav(r.in, &wav, &error)) {
        std::fprintf(stderr, "ncodec audio: %s\n", error.c_str());
        return 1;
    }
    AudioChain chain;
    const AudioStreamFormat in{wav.channels, wav.sampleRate, wav.bitsPerSample, wav.speakerMask};
    if (!chain.Open(in, r.options, &error)) {
        std::fprintf(stderr, "ncodec audio: %s\n", error.c_str());
        return 1;
    }
    const int frames = wav.Frames();
    const int frameBytes = wav.channels * wav.bitsPerSample / 8;
    Progress progress(frames > kProgressSeconds * wav.sampleRate && isatty(STDERR_FILENO));
    std::vector<int16_t> out;
    for (int at = 0;; at += kPieceFrames) {
        const int n = std::min(kPieceFrames, frames - at);
        const bool last = at + n >= frames;
        if (!chain.Process(wav.data.data() + static_cast<size_t>(at) * frameBytes, n, last, &out,
                           &error)) {
            std::fprintf(stderr, "ncodec audio: %s\n", error.c_str());
            return 1;
        }
        progress.Show(frames > 0 ? static_cast<double>(at + n) / frames : 1.0);
        if (last) break;
    }
    const AudioStreamFormat& o = chain.Output();
    // The flushes pad the last block with silence; keep the length the
    // tempo and rate ask for.
    const double wanted =
        static_cast<double>(frames) / r.options.tempo * o.sampleRate / wav.sampleRate;
    const int outFrames =
        std::min(static_cast<int>(out.size() / o.channels), static_cast<int>(std::lround(wanted)));
    if (!WriteWav16(r.out, out.data(), outFrames, o.channels, o.sampleRate, o.speakerMask,
                    &error)) {
        std::fprintf(stderr, "ncodec audio: %s\n", error.c_str());
        return 1;
    }
    std::printf(
        "%s: %d ch, %d Hz, %d-bit, %.3f s -> %s: %d ch (mask 0x%X), %d Hz, 16-bit, %.3f s\n",
        r.in.c_str(), wav.channels, wav.sampleRate, wav.bitsPerSample,
        static_cast<double>(frames) / wav.sampleRate, r.out.c_str(), o.channels,
        static_cast<unsigned>(o.speakerMask), o.sampleRate,
        static_cast<double>(outFrames) / o.sampleRate);
    return 0;
}

}  // namespace ncodec
