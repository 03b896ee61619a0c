#version 300 es
precision highp float;
// Two planes (NV12): tint from the Y plane alone; alpha: the constant alpha.
uniform vec4 Config;
uniform vec4 Config2;
uniform sampler2D Y;
in vec2 vTex0;
out vec4 fragColor;

vec3 yuvToRgb(float y, float u, float v) {
    return vec3(y + 1.402 * v, y - 0.34413 * u - 0.71414 * v, y + 1.772 * u);
}

void main() {
    float y = texture(Y, vTex0).x;
    fragColor = vec4(yuvToRgb(y * Config.y + Config.x, Config.z, Config.w), Config2.x);
}
