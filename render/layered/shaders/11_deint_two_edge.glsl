#version 300 es
precision highp float;
// De-interlacing, edge-directed, two-plane source. Config.xy: texel width and height;
// Config.z: the parity (0 even, 1 odd) of the rows of the field that is kept.
uniform vec4 Config;
uniform sampler2D Y;
uniform sampler2D UVTop;
uniform sampler2D UVBottom;
in vec2 vTex0;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}
// Chroma comes from the field of the row the coordinate falls in.
vec3 pick(vec2 t) {
    float row = floor(t.y / Config.y);
    vec4 uv = mod(row, 2.0) < 0.5 ? texture(UVTop, t) : texture(UVBottom, t);
    return vec3(texture(Y, t).x, uv.x, uv.a);
}
float luma(vec3 c) { return c.x; }

void main() {
    vec2 t = vTex0;
    vec3 result = pick(t);
    float row = floor(t.y / Config.y);
    if (abs(mod(row, 2.0) - Config.z) > 0.5) {
        vec2 dy = vec2(0.0, Config.y);
        // Of the three directions through the pixel, the pair that agrees best.
        vec2 dx = vec2(Config.x, 0.0);
        vec3 pa[3] = vec3[3](pick(t - dy - dx), pick(t - dy), pick(t - dy + dx));
        vec3 pb[3] = vec3[3](pick(t + dy + dx), pick(t + dy), pick(t + dy - dx));
        int best = 1;
        float bestDiff = abs(luma(pa[1]) - luma(pb[1]));
        for (int i = 0; i < 3; i += 2) {
            float d = abs(luma(pa[i]) - luma(pb[i]));
            if (d < bestDiff) { best = i; bestDiff = d; }
        }
        vec3 above = pa[best];
        vec3 below = pb[best];
        float la = luma(above), lb = luma(below), lc = luma(result);
        if (lc < min(la, lb) || lc > max(la, lb)) result = (above + below) * 0.5;
    }
    fragColor = vec4(yuvToRgb(result.x, result.y - 0.5, result.z - 0.5), 1.0);
}
