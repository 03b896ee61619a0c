#version 300 es
precision highp float;
// Three planes: colour adjustment; alpha: the constant alpha.
uniform vec4 Config;
uniform vec4 Config2;
uniform sampler2D Y;
uniform sampler2D U;
uniform sampler2D V;
in vec2 vTex0;
in vec2 vTex1;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    float y = texture(Y, vTex0).x;
    float u = texture(U, vTex1).x - 0.5;
    float v = texture(V, vTex1).x - 0.5;
    u = u * Config.y + Config.x;
    v = v * Config.w + Config.z;
    y = y * Config2.y + Config2.x;
    fragColor = vec4(yuvToRgb(y, u, v), Config2.z);
}
