#version 300 es
precision highp float;
// De-interlacing, line averaging, RGB source. Config.xy: texel width and height;
// Config.z: the parity (0 even, 1 odd) of the rows of the field that is kept.
uniform vec4 Config;
uniform sampler2D Rgb;
in vec2 vTex0;
out vec4 fragColor;
vec3 pick(vec2 t) { return texture(Rgb, t).rgb; }
float luma(vec3 c) { return dot(c, vec3(0.299, 0.587, 0.114)); }

void main() {
    vec2 t = vTex0;
    vec3 result = pick(t);
    float row = floor(t.y / Config.y);
    if (abs(mod(row, 2.0) - Config.z) > 0.5) {
        vec2 dy = vec2(0.0, Config.y);
        vec3 above = pick(t - dy);
        vec3 below = pick(t + dy);
        float la = luma(above), lb = luma(below), lc = luma(result);
        if (lc < min(la, lb) || lc > max(la, lb)) result = (above + below) * 0.5;
    }
    fragColor = vec4(result, 1.0);
}
