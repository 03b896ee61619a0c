// `ncodec play FILE.wav [options]`: plays a WAV file through CNAudioRender,
// with a progress line that shows the render's play clock, and
// `ncodec devices`: the sound devices and mixer lines the render sees.
//
// `--device virtual:OUT.wav` plays on the virtual device under a manual
// clock (as fast as the machine allows) and writes what the device played,
// so a person can listen to exactly what the render produced. Otherwise the
// default sound system plays in real time (ALSA when there is a card).
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ncodecbase/audio_render.h"
#include "ncodecbase/host_events.h"
#include "platform/kernel/sync.h"
#include "platform/sound/sound_system.h"
#include "platform/sound/virtual_sound.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/wav_file.h"

namespace ncodec {
namespace {

constexpr int kPieceMs = 100;

struct PlayRequest {
    std::string in;
    int device = -1;
    std::string virtualOut;  // non-empty: play on the virtual device
    CNAudioRender::PlayConfigInfoTag config{};
};

int Usage(const char* problem) {
    if (problem) std::fprintf(stderr, "ncodec play: %s\n", problem);
    std::fprintf(stderr,
                 "usage: ncodec play FILE.wav [--device N|virtual:OUT.wav] [--tempo X]\n"
                 "                  [--eq F:G,...] [--volume X]\n"
                 "  --device N         the render's device N (see ncodec devices)\n"
                 "  --device virtual:OUT.wav  play on the virtual device, write what it played\n"
                 "  --tempo X          speed, pitch kept (0.04 to 25)\n"
                 "  --eq F:G,...       equalizer bands: centre F Hz, linear gain G\n"
                 "  --volume X         gain (0.01 to 100)\n");
    return 2;
}

bool ParseDouble(const std::string& text, double* value) {
    char* end = nullptr;
    errno = 0;
    *value = std::strtod(text.c_str(), &end);
    return errno == 0 && end && *end == '\0' && !text.empty() && std::isfinite(*value);
}

bool ParseEqBands(const std::string& text, CNAudioRender::PlayConfigInfoTag* c) {
    size_t at = 0;
    int n = 0;
    while (at <= text.size()) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string item = text.substr(at, comma - at);
        const size_t colon = item.find(':');
        double f, g;
        if (n == 12 || colon == std::string::npos || !ParseDouble(item.substr(0, colon), &f) ||
            !ParseDouble(item.substr(colon + 1), &g) || f < 1 || f > 1e6)
            return false;
        c->nEqualizerFreq[n] = static_cast<int>(f);
        c->fEqualizerGain[n++] = static_cast<float>(g);
        at = comma + 1;
    }
    c->nEqualizerBands = n;
    c->nFlags |= 0x08;
    return true;
}

int ParseArgs(const Args& args, PlayRequest* r) {
    r->config.nSize = sizeof(r->config);
    r->config.nVolume = 256;
    r->config.nSpeed = 25;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        double x;
        if (a == "--device" && hasValue) {
            const std::string v = args[++i];
            if (v.rfind("virtual:", 0) == 0) {
                r->virtualOut = v.substr(8);
                if (r->virtualOut.empty()) return Usage("virtual: needs an output file");
            } else if (!ParseDouble(v, &x) || x < 0 || x > 7 || x != std::floor(x)) {
                return Usage("--device needs a device number or virtual:OUT.wav");
            } else {
                r->device = static_cast<int>(x);
            }
        } else if (a == "--tempo" && hasValue) {
            if (!ParseDouble(args[++i], &x) || x < 0.04 || x > 25)
                return Usage("--tempo needs a factor between 0.04 and 25");
            r->config.nFlags |= 0x10;
            r->config.nSpeed = static_cast<int>(std::lround(x * 25));
        } else if (a == "--eq" && hasValue) {
            if (!ParseEqBands(args[++i], &r->config)) return Usage("--eq needs F:G,F:G,...");
        } else if (a == "--volume" && hasValue) {
            if (!ParseDouble(args[++i], &x) || x < 0.01 || x > 100)
                return Usage("--volume needs a gain between 0.01 and 100");
            r->config.nFlags |= 0x04;
            r->config.nVolume = std::clamp(static_cast<int>(std::lround(x * 256)), 2, 25600);
        } else if (a.rfind("--", 0) == 0 || !r->in.empty()) {
            return Usage(("unexpected argument " + a).c_str());
        } else {
            r->in = a;
        }
    }
    if (r->in.empty()) return Usage("no input file");
    if (!CNAudioRender::CheckPlayConfig(&r->config)) return Usage("these settings do not combine");
    return 0;
}

CNAudioRender::StatInfoTag Stat(CNAudioRender& render) {
    CNAudioRender::StatInfoTag st{};
    render.GetStatInfo(&st);
    return st;
}

// Appends the file as 100 ms wrap buffers over its own data, then the end.
bool AppendAll(CNAudioRender& render, WavAudio& wav) {
    const int frameBytes = wav.channels * wav.bitsPerSample / 8;
    const int piece = std::max(1, wav.sampleRate * kPieceMs / 1000);
    for (int at = 0; at < wav.Frames(); at += piece) {
        const int frames = std::min(piece, wav.Frames() - at);
        CNCodecBuffer* b =
            CNCodecBuffer::CreateWrapBuffer(wav.data.data() + static_cast<size_t>(at) * frameBytes,
                                            frames * frameBytes, frames * frameBytes, nullptr);
        if (!b) return false;
        b->SetBufferUserData(frames);
        b->SetBufferFlag(AUDIO_BUFFER_FLAG_INTERLEAVED);
        b->SetTimeStamp(static_cast<uint32_t>(static_cast<int64_t>(at) * 1000 / wav.sampleRate));
        const int ok = render.AppendBuffer(b);
        b->Release();
        if (!ok) return false;
    }
    return render.AppendBuffer(nullptr) == 1;
}

void Progress(uint32_t ms, double totalSeconds, bool final) {
    if (!isatty(STDERR_FILENO) && !final) return;
    std::fprintf(stderr, "\r  %7.2f s / %.2f s", ms / 1000.0, totalSeconds);
    if (final) std::fprintf(stderr, "\n");
}

// Plays until the end of the stream, a fatal error, or (virtual) a limit.
int PlayThrough(CNAudioRender& render, nplat::HANDLE status, double totalSeconds,
                nplat::ManualClock* clock) {
    const double limitMs = totalSeconds * 1000 * 30 + 10000;
    for (double t = 0; t < limitMs; t += 10) {
        if (clock) {
            nplat::WaitUntilThreadsBlocked(1);
            clock->Advance(10);
        } else {
            NWaitForSingleObject(status, 100);
            t += 90;
        }
        const int state = Stat(render).nState;
        if (static_cast<int64_t>(t) % 250 == 0 || state >= 3)
            Progress(render.GetCurrentPlayTime(), totalSeconds, false);
        if (state == 4 || state == 5) return state;
    }
    return -1;
}

}  // namespace

int RunPlay(const Args& args) {
    PlayRequest r;
    if (const int rc = ParseArgs(args, &r)) return rc;
    WavAudio wav;
    std::string error;
    if (!ReadWav(r.in, &wav, &error)) {
        std::fprintf(stderr, "ncodec play: %s\n", error.c_str());
        return 1;
    }
    CNCodecBase::AudioFormatInfoTag format{};
    format.nStructSize = sizeof(format);
    format.nCodecType = AUDIO_TYPE_PCM;
    format.nCodecSubType = AUDIO_FORMAT_PCM;
    format.nChannels = wav.channels;
    format.nSpeakerInfo = wav.speakerMask;
    format.nSampleRate = wav.sampleRate;
    format.nBitsPerSample = wav.bitsPerSample;
    if (!CNAudioRender::CheckAudioFormatInfo(&format)) {
        std::fprintf(stderr, "ncodec play: the render cannot play this format\n");
        return 1;
    }

    nplat::ManualClock clock(0);
    nplat::VirtualSoundSystem virt;
    const bool isVirtual = !r.virtualOut.empty();
    if (isVirtual) {
        nplat::SetClock(&clock);
        nplat::SetSoundSystem(&virt);
    }
    int rc = 1;
    nplat::VirtualBufferState state;
    {
        CNAudioRender render;
        nplat::HANDLE status = NCreateEvent(0, 0);
        const double seconds = static_cast<double>(wav.Frames()) / wav.sampleRate;
        if (!render.Init()) {
            std::fprintf(stderr, "ncodec play: no sound devices (error %d)\n",
                         render.GetExtendErrorCode());
        } else if (render.SetPlayConfig(&r.config),
                   !render.Open(nullptr, isVirtual ? 0 : r.device, &format, nullptr, status, 0,
                                nplat::THREAD_PRIORITY_HIGHEST)) {
            std::fprintf(stderr, "ncodec play: cannot open device %d (error %d)\n", r.device,
                         render.GetExtendErrorCode());
        } else if (!AppendAll(render, wav) || !render.Play()) {
            std::fprintf(stderr, "ncodec play: cannot queue the audio\n");
        } else {
            std::fprintf(stderr, "playing %s on %s\n", r.in.c_str(),
                         isVirtual ? "the virtual device" : nplat::GetSoundSystem()->Name());
            const int ended = PlayThrough(render, status, seconds, isVirtual ? &clock : nullptr);
            Progress(render.GetCurrentPlayTime(), seconds, true);
            rc = ended == 4 ? 0 : 1;
            if (ended != 4) std::fprintf(stderr, "ncodec play: playback failed\n");
        }
        if (isVirtual) state = virt.GetBufferState(0);  // the format the device played
        render.Close();
        NCloseHandle(status);
    }
    if (isVirtual) {
        const nplat::VirtualBufferState& b = state;
        std::vector<int16_t> captured(virt.CaptureSize(0) / 2);
        virt.ReadCapture(0, 0, captured.data(), captured.size() * 2);
        nplat::SetSoundSystem(nullptr);
        nplat::SetClock(nullptr);
        const int channels = std::max(1, static_cast<int>(b.format.Format.nChannels));
        if (rc == 0 &&
            !WriteWav16(r.virtualOut, captured.data(), static_cast<int>(captured.size()) / channels,
                        channels, static_cast<int>(b.frequency),
                        static_cast<int>(b.format.dwChannelMask), &error)) {
            std::fprintf(stderr, "ncodec play: %s\n", error.c_str());
            rc = 1;
        }
    }
    return rc;
}

int RunDevices(const Args& args) {
    if (!args.empty()) {
        std::fprintf(stderr, "usage: ncodec devices\n");
        return 2;
    }
    CNAudioRender render;
    std::printf("sound system: %s\n", nplat::GetSoundSystem()->Name());
    if (!render.Init()) {
        std::printf("no devices (error %d)\n", render.GetExtendErrorCode());
        return 1;
    }
    CNAudioRender::SoundDeviceInfoTag devices[8];
    const int n = render.GetDeviceInfo(devices, 8);
    if (n == 0) std::printf("no devices\n");
    for (int i = 0; i < n; ++i) {
        int volume = -1, balance = 0;
        const bool master = render.GetVolume(i, 0, &volume, &balance) == 1;
        std::printf("device %d: %s", devices[i].nIndex, devices[i].chDescription);
        if (master) std::printf("  (master %d%%, balance %d)", volume, balance);
        std::printf("\n");
    }
    const nplat::UINT mixers = nplat::mixerGetNumDevs();
    for (nplat::UINT m = 0; m < mixers; ++m) {
        nplat::MIXERCAPSA caps;
        nplat::HMIXER mixer;
        if (nplat::mixerGetDevCapsA(m, &caps, sizeof(caps)) != 0 ||
            nplat::mixerOpen(&mixer, m, 0, 0, nplat::MIXER_OBJECTF_MIXER) != 0)
            continue;
        std::printf("mixer %u: %s\n", m, caps.szPname);
        nplat::MIXERLINEA dest{};
        dest.cbStruct = sizeof(dest);
        if (nplat::mixerGetLineInfoA(mixer, &dest, nplat::MIXER_GETLINEINFOF_DESTINATION) == 0) {
            std::printf("  destination %s, %u controls\n", dest.szName, dest.cControls);
            for (nplat::DWORD s = 0; s < dest.cConnections; ++s) {
                nplat::MIXERLINEA src{};
                src.cbStruct = sizeof(src);
                src.dwSource = s;
                if (nplat::mixerGetLineInfoA(mixer, &src, nplat::MIXER_GETLINEINFOF_SOURCE) == 0)
                    std::printf("  source %s (type 0x%X), %u controls\n", src.szName,
                                src.dwComponentType, src.cControls);
            }
        }
        nplat::mixerClose(mixer);
    }
    return 0;
}

}  // namespace ncodec
