#version 300 es
precision highp float;
// RGB texture: tint (luma only, fixed chroma); alpha: the constant alpha.
uniform vec4 Config;
uniform vec4 Config2;
uniform sampler2D Rgba;
in vec2 vTex0;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

vec3 rgbToYuv(vec3 c) {
    return vec3(0.299 * c.r + 0.587 * c.g + 0.114 * c.b,
                -0.1687 * c.r - 0.3313 * c.g + 0.5 * c.b,
                0.5 * c.r - 0.4187 * c.g - 0.0813 * c.b);
}

void main() {
    vec4 s = texture(Rgba, vTex0);
    vec3 yuv = rgbToYuv(s.rgb);
    float y = yuv.x * Config.y + Config.x;
    fragColor = vec4(yuvToRgb(y, Config.z, Config.w), Config2.x);
}
