#version 300 es
precision highp float;
// Packed YUV texture: tint (luma only, fixed chroma); alpha: sample alpha times the constant.
uniform vec4 Config;
uniform vec4 Config2;
uniform sampler2D Yuva;
in vec2 vTex0;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    vec4 s = texture(Yuva, vTex0);
    vec3 yuv = vec3(s.r, s.g - 0.5, s.b - 0.5);  // AYUV: Y in red, U green, V blue
    float y = yuv.x * Config.y + Config.x;
    fragColor = vec4(yuvToRgb(y, Config.z, Config.w), s.a * Config2.x);
}
