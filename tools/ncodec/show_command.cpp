// `ncodec show IMAGE... [--text "..."] [--out FILE]`: composes pictures and a
// text through the video render and writes what RenderToMemory returns. The
// first picture fills the view (the main frame); every further one is laid
// over its right edge at a quarter of the view's size, top to bottom, keeping
// its own transparency; the text is drawn at the top left in white with a
// transparent background. The same scene is what a window would show.
//
// Not here: showing the scene in a window (the command composes in memory
// only) and moving pictures: frames are placed once.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ncodecbase/gdi_text.h"
#include "ncodecbase/video_render.h"
#include "platform/window/window.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

constexpr int kBuffer = 1;
constexpr int kMaxView = 8192;

struct ShowOptions {
    std::vector<std::string> pictures;
    std::string text;
    std::string out = "frame.png";
};

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec show: %s\n", message.c_str());
    return 1;
}

bool Parse(const Args& args, ShowOptions* o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if ((a == "--text" || a == "--out") && i + 1 < args.size()) {
            (a == "--text" ? o->text : o->out) = args[++i];
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "ncodec show: unknown option '%s'\n", a.c_str());
            return false;
        } else {
            o->pictures.push_back(a);
        }
    }
    if (o->pictures.empty()) {
        std::fprintf(stderr, "usage: ncodec show IMAGE... [--text \"...\"] [--out FILE]\n");
        return false;
    }
    return true;
}

bool Load(const std::string& path, Picture* picture, std::string* error) {
    BufferPtr file = ReadFileBuffer(path, error);
    if (!file) return false;
    const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
    const ImageFormat* format = FormatForData(bytes, static_cast<size_t>(file->GetDataSize()));
    if (!format) {
        *error = path + " is not a picture in a format ncodec reads";
        return false;
    }
    if (!format->decode(file.get(), picture)) {
        *error = path + ": the " + format->name + " decoder refused the file";
        return false;
    }
    return true;
}

// A style context for the caption: white glyphs, keyed black background.
struct CaptionStyle {
    nplat::HDC dc = nplat::CreateCompatibleDC(nullptr);
    nplat::HFONT font =
        nplat::CreateFontW(-18, 0, 0, 0, nplat::FW_BOLD, 0, 0, 0, 0, 0, 0, 0, 0, u"");
    CaptionStyle() {
        if (!dc) return;
        if (font) nplat::SelectObject(dc, font);
        nplat::SetTextColor(dc, nplat::RGB(255, 255, 255));
        nplat::SetBkColor(dc, nplat::RGB(0, 0, 0));
        nplat::SetBkMode(dc, nplat::TRANSPARENT);
    }
    ~CaptionStyle() {
        if (dc) nplat::DeleteDC(dc);
        if (font) nplat::DeleteObject(font);
    }
};

// Builds the scene in an opened render and composes it.
int Compose(CNVideoRender& render, const ShowOptions& o, std::vector<Picture>& pictures,
            Picture* out) {
    const int w = pictures[0].format.nWidth, h = pictures[0].format.nHeight;
    if (!render.CreateOffScreenBuffer(kBuffer, w, h, 0, 0, 0, 0, 0x100, 0x008080))
        return Fail("cannot create the off-screen buffer");
    nplat::RECT whole = {0, 0, w, h};
    if (!render.AddFrame(kBuffer, 0, 0, &pictures[0].format, pictures[0].pixels.get(), nullptr,
                         &whole, 0x1, 0, 255, nullptr))
        return Fail("the render refused " + o.pictures[0]);
    const int tw = w / 4 > 0 ? w / 4 : 1, th = h / 4 > 0 ? h / 4 : 1;
    for (size_t i = 1; i < pictures.size(); ++i) {
        const int top = static_cast<int>(i - 1) * th;
        nplat::RECT dst = {w - tw, top, w, top + th};
        if (!render.AddFrame(kBuffer, static_cast<int>(i), 0, &pictures[i].format,
                             pictures[i].pixels.get(), nullptr, &dst, 0x4, 0, 255, nullptr))
            return Fail("the render refused " + o.pictures[i]);
    }
    CaptionStyle style;
    if (!o.text.empty()) {
        if (o.text.size() > 256) return Fail("the text is longer than 256 bytes");
        nplat::POINT at = {8, 8};
        std::string text = o.text;
        if (!style.dc || !render.AddText(kBuffer, 1, reinterpret_cast<unsigned char*>(text.data()),
                                         static_cast<int>(text.size()), 0x2, &at, style.dc))
            return Fail("the render refused the text");
    }
    CNCodecBuffer* picture = nullptr;
    if (!render.RenderToMemory(kBuffer, &out->format, &picture, 0))
        return Fail("composition failed");
    out->pixels.reset(picture);
    return 0;
}

}  // namespace

int RunShow(const Args& args) {
    ShowOptions o;
    if (!Parse(args, &o)) return 2;
    const ImageFormat* target = FormatForPath(o.out);
    if (!target || !target->encode) return Fail("cannot write this kind of file: " + o.out);
    std::vector<Picture> pictures(o.pictures.size());
    for (size_t i = 0; i < o.pictures.size(); ++i) {
        std::string error;
        if (!Load(o.pictures[i], &pictures[i], &error)) return Fail(error);
    }
    const int w = pictures[0].format.nWidth, h = pictures[0].format.nHeight;
    if (w > kMaxView || h > kMaxView)
        return Fail("the first picture is larger than the view limit");

    CNVideoRender render;
    if (!render.Init()) return Fail("this processor cannot run the render");
    nplat::HWND window = nplat::CreateMemoryWindow(0, 0, w, h);
    if (!window) return Fail("cannot create a memory window");
    int result = 1;
    Picture composed;
    if (render.Open(window, nullptr, 0, 0)) {
        result = Compose(render, o, pictures, &composed);
        render.Close();
    } else {
        Fail("cannot open the render");
    }
    render.Uninit();
    nplat::DestroyWindow(window);
    if (result != 0) return result;

    BufferPtr file(CNCodecBuffer::CreateBuffer());
    EncodeOptions options;
    options.alpha = false;
    std::string error;
    if (!file || !target->encode(composed, options, file.get()))
        return Fail("cannot encode " + o.out);
    if (!WriteFileBuffer(o.out, file.get(), &error)) return Fail(error);
    std::printf("%s: %dx%d, %zu picture(s)%s\n", o.out.c_str(), w, h, pictures.size(),
                o.text.empty() ? "" : ", with text");
    return 0;
}

}  // namespace ncodec
