#version 300 es
precision highp float;
// Two planes (NV12): YUV to RGB; alpha: alpha mask times the constant.
uniform vec4 Config;
uniform sampler2D Y;
uniform sampler2D UV;
uniform sampler2D A;
in vec2 vTex0;
in vec2 vTex1;
in vec2 vTex2;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    float y = texture(Y, vTex0).x;
    vec4 uv = texture(UV, vTex1);  // U in the first channel, V in alpha
    float u = uv.x - 0.5;
    float v = uv.a - 0.5;
    fragColor = vec4(yuvToRgb(y, u, v), texture(A, vTex2).x * Config.x);
}
