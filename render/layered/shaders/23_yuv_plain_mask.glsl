#version 300 es
precision highp float;
// Packed YUV texture: YUV to RGB; alpha: alpha mask times the constant.
uniform vec4 Config;
uniform sampler2D Yuv;
uniform sampler2D A;
in vec2 vTex0;
in vec2 vTex1;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    vec4 s = texture(Yuv, vTex0);
    vec3 yuv = vec3(s.r, s.g - 0.5, s.b - 0.5);  // AYUV: Y in red, U green, V blue
    fragColor = vec4(yuvToRgb(yuv.x, yuv.y, yuv.z), texture(A, vTex1).x * Config.x);
}
