#version 300 es
precision highp float;
// Packed YUV texture: YUV to RGB; alpha: the constant alpha.
uniform vec4 Config;
uniform sampler2D Yuva;
in vec2 vTex0;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    vec4 s = texture(Yuva, vTex0);
    vec3 yuv = vec3(s.r, s.g - 0.5, s.b - 0.5);  // AYUV: Y in red, U green, V blue
    fragColor = vec4(yuvToRgb(yuv.x, yuv.y, yuv.z), Config.x);
}
