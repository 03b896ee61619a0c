#version 300 es
precision highp float;
// Three planes: YUV to RGB; alpha: alpha mask times the constant.
uniform vec4 Config;
uniform sampler2D Y;
uniform sampler2D U;
uniform sampler2D V;
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
    float u = texture(U, vTex1).x - 0.5;
    float v = texture(V, vTex1).x - 0.5;
    fragColor = vec4(yuvToRgb(y, u, v), texture(A, vTex2).x * Config.x);
}
