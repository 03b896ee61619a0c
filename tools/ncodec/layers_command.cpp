// `ncodec layers SCENE.json --out composed.png [--device soft]`: builds a
// scene for the layered render from a small JSON description and writes
// the composed picture. The scene opens the render on a memory window of its
// size, adds the pictures as bitmaps, makes static layers (sizes in pixels),
// draws bitmaps into them, maps them onto the back buffer and presents.
//
//   {"width": 320, "height": 240, "background": "#203040",
//    "bitmaps": [{"id": 1, "file": "logo.png"}],
//    "layers": [{"id": 1, "width": 100, "height": 80, "colour": "#ff000000",
//                "draw": [{"bitmap": 1, "x": 0, "y": 0, "w": 0, "h": 0}],
//                "mappings": [{"source": [0, 0, 100, 80], "dest": [10, 10, 200, 160],
//                              "rotate": 0, "alpha": 255, "flags": 0}]}]}
//
// The JSON reader takes objects, arrays, numbers, strings without escapes
// and the three literals; anything else is an error. Only the software
// device exists here ("--device soft").
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ncodecbase/layered_render.h"
#include "platform/window/window.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

struct Json {
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::map<std::string, Json> fields;

    const Json* Get(const std::string& key) const {
        auto it = fields.find(key);
        return it == fields.end() ? nullptr : &it->second;
    }
    double Number(const std::string& key, double fallback) const {
        const Json* j = Get(key);
        return j && j->kind == kNumber ? j->number : fallback;
    }
};

class JsonReader {
  public:
    explicit JsonReader(const std::string& text) : m_text(text) {}
    bool Read(Json* out) {
        if (!Value(out, 0)) return false;
        Skip();
        return m_pos == m_text.size();
    }

  private:
    void Skip() {
        while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos]))) {
            ++m_pos;
        }
    }
    bool Eat(char c) {
        Skip();
        if (m_pos < m_text.size() && m_text[m_pos] == c) return ++m_pos, true;
        return false;
    }
    bool String(std::string* out) {
        if (!Eat('"')) return false;
        const size_t end = m_text.find('"', m_pos);
        if (end == std::string::npos || m_text.find('\\', m_pos) < end) return false;
        *out = m_text.substr(m_pos, end - m_pos);
        m_pos = end + 1;
        return true;
    }
    bool Value(Json* out, int depth) {
        if (depth > 32) return false;
        Skip();
        if (m_pos >= m_text.size()) return false;
        const char c = m_text[m_pos];
        if (c == '{') {
            ++m_pos;
            out->kind = Json::kObject;
            if (Eat('}')) return true;
            do {
                std::string key;
                if (!String(&key) || !Eat(':') || !Value(&out->fields[key], depth + 1))
                    return false;
            } while (Eat(','));
            return Eat('}');
        }
        if (c == '[') {
            ++m_pos;
            out->kind = Json::kArray;
            if (Eat(']')) return true;
            do {
                out->items.emplace_back();
                if (!Value(&out->items.back(), depth + 1)) return false;
            } while (Eat(','));
            return Eat(']');
        }
        if (c == '"') return out->kind = Json::kString, String(&out->text);
        for (const char* word : {"true", "false", "null"}) {
            if (m_text.compare(m_pos, std::string(word).size(), word) == 0) {
                m_pos += std::string(word).size();
                out->kind = word[0] == 'n' ? Json::kNull : Json::kBool;
                out->number = word[0] == 't';
                return true;
            }
        }
        char* end = nullptr;
        out->number = std::strtod(m_text.c_str() + m_pos, &end);
        if (end == m_text.c_str() + m_pos) return false;
        m_pos = static_cast<size_t>(end - m_text.c_str());
        out->kind = Json::kNumber;
        return true;
    }

    const std::string& m_text;
    size_t m_pos = 0;
};

// "#RRGGBB" (opaque) or "#AARRGGBB"; a number is taken as it is.
bool Colour(const Json* j, uint32_t fallback, uint32_t* out) {
    *out = fallback;
    if (!j) return true;
    if (j->kind == Json::kNumber) return *out = static_cast<uint32_t>(j->number), true;
    if (j->kind != Json::kString || j->text.empty() || j->text[0] != '#') return false;
    const std::string hex = j->text.substr(1);
    if (hex.size() != 6 && hex.size() != 8) return false;
    char* end = nullptr;
    const unsigned long v = std::strtoul(hex.c_str(), &end, 16);
    if (*end) return false;
    *out = static_cast<uint32_t>(v) | (hex.size() == 6 ? 0xFF000000u : 0u);
    return true;
}

bool Rect(const Json* j, float out[4]) {
    if (!j) return true;
    if (j->kind != Json::kArray || j->items.size() != 4) return false;
    for (int i = 0; i < 4; ++i) {
        if (j->items[i].kind != Json::kNumber) return false;
        out[i] = static_cast<float>(j->items[i].number);
    }
    return true;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec layers: %s\n", message.c_str());
    return 1;
}

struct WindowCloser {
    void operator()(nplat::Window* w) const { nplat::DestroyWindow(w); }
};

int BuildScene(CNHVideoRender* r, const Json& scene, const std::vector<Picture>& pictures) {
    const Json* bitmaps = scene.Get("bitmaps");
    for (size_t i = 0; bitmaps && i < bitmaps->items.size(); ++i) {
        const Json& b = bitmaps->items[i];
        const Picture& p = pictures[i];
        auto format = p.format;
        if (r->AddBitmap(static_cast<unsigned>(b.Number("id", static_cast<double>(i))), 0x40, 255,
                         &format, p.pixels.get()) != 0) {
            return Fail("bitmap " + std::to_string(i) + " refused by the render");
        }
    }
    const Json* layers = scene.Get("layers");
    for (size_t i = 0; layers && i < layers->items.size(); ++i) {
        const Json& l = layers->items[i];
        const unsigned id = static_cast<unsigned>(l.Number("id", static_cast<double>(i)));
        uint32_t colour;
        if (!Colour(l.Get("colour"), 0, &colour)) return Fail("bad layer colour");
        const float w = static_cast<float>(l.Number("width", scene.Number("width", 0)));
        const float h = static_cast<float>(l.Number("height", scene.Number("height", 0)));
        if (r->AddLayer(id, 0x102, colour, w, h, 0xFFFFFFFFu) != 0) return Fail("layer refused");
        const Json* draws = l.Get("draw");
        for (size_t k = 0; draws && k < draws->items.size(); ++k) {
            const Json& d = draws->items[k];
            const unsigned bitmap = static_cast<unsigned>(d.Number("bitmap", 0));
            CNHVideoRender::DrawLayerBitmapInfoTag item{};
            unsigned flags = 0, alpha = 0;
            CNCodecBase::VideoFormatInfoTag f{};
            if (r->GetBitmapInfo(bitmap, &flags, &alpha, &f) != 0) return Fail("unknown bitmap");
            item.nSourceWidth = f.nWidth, item.nSourceHeight = f.nHeight;
            item.fDestX = static_cast<float>(d.Number("x", 0));
            item.fDestY = static_cast<float>(d.Number("y", 0));
            item.fDestWidth = static_cast<float>(d.Number("w", 0));
            item.fDestHeight = static_cast<float>(d.Number("h", 0));
            if (r->DrawLayerBitmap(id, bitmap, 1, &item, 1) != 0) return Fail("draw failed");
        }
        std::vector<CNHVideoRender::LayerMappingInfoTag> maps;
        const Json* mappings = l.Get("mappings");
        for (size_t k = 0; mappings && k < mappings->items.size(); ++k) {
            const Json& m = mappings->items[k];
            CNHVideoRender::LayerMappingInfoTag tag{};
            float src[4] = {0, 0, w, h}, dst[4] = {0, 0, 0, 0};
            if (!Rect(m.Get("source"), src) || !Rect(m.Get("dest"), dst)) {
                return Fail("a mapping rectangle needs four numbers");
            }
            tag.fSourceX = src[0], tag.fSourceY = src[1];
            tag.fSourceWidth = src[2], tag.fSourceHeight = src[3];
            tag.fDestX = dst[0], tag.fDestY = dst[1], tag.fDestWidth = dst[2];
            tag.fDestHeight = dst[3];
            tag.nFlags = static_cast<int>(m.Number("flags", 0)) | 0x8;
            tag.nRotate = static_cast<int>(m.Number("rotate", 0));
            tag.nAlpha = static_cast<int>(m.Number("alpha", 255));
            tag.nTintU = static_cast<int>(m.Number("tint_u", 128));
            tag.nTintV = static_cast<int>(m.Number("tint_v", 128));
            maps.push_back(tag);
        }
        if (r->ConfigLayerMappingInfo(id, static_cast<int>(maps.size()), maps.data()) != 0) {
            return Fail("mappings refused");
        }
    }
    return 0;
}

}  // namespace

int RunLayers(const Args& args) {
    std::string scenePath, out;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size()) {
            out = args[++i];
        } else if (args[i] == "--device" && i + 1 < args.size()) {
            if (args[++i] != "soft") return Fail("only the software device is built in");
        } else if (scenePath.empty() && args[i][0] != '-') {
            scenePath = args[i];
        } else {
            return Fail("usage: ncodec layers SCENE.json --out composed.png [--device soft]");
        }
    }
    if (scenePath.empty() || out.empty()) {
        return Fail("usage: ncodec layers SCENE.json --out composed.png [--device soft]");
    }
    std::string error;
    BufferPtr file = ReadFileBuffer(scenePath, &error);
    if (!file) return Fail(error);
    const std::string text(static_cast<const char*>(file->GetAddress()),
                           static_cast<size_t>(file->GetDataSize()));
    Json scene;
    if (!JsonReader(text).Read(&scene) || scene.kind != Json::kObject) {
        return Fail(scenePath + ": not a JSON object");
    }
    const int width = static_cast<int>(scene.Number("width", 0));
    const int height = static_cast<int>(scene.Number("height", 0));
    if (width < 1 || height < 1 || width > 8192 || height > 8192) {
        return Fail("the scene needs a width and height of 1-8192");
    }
    uint32_t background;
    if (!Colour(scene.Get("background"), 0xFF000000u, &background)) return Fail("bad background");

    // Pictures are decoded before the render opens, relative to the scene file.
    const std::string dir = scenePath.find('/') == std::string::npos
                                ? std::string()
                                : scenePath.substr(0, scenePath.rfind('/') + 1);
    std::vector<Picture> pictures;
    const Json* bitmaps = scene.Get("bitmaps");
    for (size_t i = 0; bitmaps && i < bitmaps->items.size(); ++i) {
        const Json* name = bitmaps->items[i].Get("file");
        if (!name || name->kind != Json::kString) return Fail("a bitmap needs a file");
        const std::string path = name->text[0] == '/' ? name->text : dir + name->text;
        BufferPtr data = ReadFileBuffer(path, &error);
        if (!data) return Fail(error);
        const ImageFormat* format = FormatForData(static_cast<const uint8_t*>(data->GetAddress()),
                                                  static_cast<size_t>(data->GetDataSize()));
        pictures.emplace_back();
        if (!format || !format->decode(data.get(), &pictures.back())) {
            return Fail(path + ": cannot decode");
        }
    }

    std::unique_ptr<nplat::Window, WindowCloser> window(
        nplat::CreateMemoryWindow(0, 0, width, height));
    CNHVideoRender render;
    CNHVideoRender::ConfigInfoTag cfg{};
    if (!window || render.Init() != 0 || render.GetConfig(&cfg) != 0) {
        return Fail("the layered render cannot start");
    }
    cfg.uBackgroundColor = background;
    if (render.SetConfig(&cfg) != 0 || render.Open(window.get()) != 0) {
        return Fail("the layered render cannot open its device");
    }
    if (const int code = BuildScene(&render, scene, pictures)) return code;
    if (const int code = render.Present(0))
        return Fail("present failed with code " + std::to_string(code));

    Picture shot;
    ncb::InitVideoFormat(&shot.format, VIDEO_FORMAT_RGB32, width, height);
    shot.pixels.reset(CNCodecBuffer::CreateBuffer());
    if (!shot.pixels || !ncb::AllocateFrame(shot.pixels.get(), &shot.format)) {
        return Fail("out of memory");
    }
    const int pitch = shot.format.nPadLeft + width * 4 + shot.format.nPadRight;
    auto* rows = static_cast<uint8_t*>(shot.pixels->GetAddress()) + shot.format.nPadLeft;
    if (!nplat::SnapshotClient(window.get(), rows, pitch))
        return Fail("cannot read the window back");
    for (int y = 0; y < height; ++y) {
        auto* px = reinterpret_cast<uint32_t*>(rows + static_cast<ptrdiff_t>(y) * pitch);
        for (int x = 0; x < width; ++x) px[x] |= 0xFF000000u;
    }
    const ImageFormat* format = FormatForPath(out);
    BufferPtr encoded(CNCodecBuffer::CreateBuffer());
    EncodeOptions options;
    options.alpha = false;
    if (!format || !format->encode || !encoded || !format->encode(shot, options, encoded.get())) {
        return Fail(out + ": no writable picture format for this name");
    }
    if (!WriteFileBuffer(out, encoded.get(), &error)) return Fail(error);
    std::printf("%s: %dx%d, %zu layers\n", out.c_str(), width, height,
                scene.Get("layers") ? scene.Get("layers")->items.size() : size_t{0});
    return 0;
}

}  // namespace ncodec
