#version 300 es
precision highp float;
// RGB texture: colour as sampled; alpha: alpha mask times the constant.
uniform vec4 Config;
uniform sampler2D Rgb;
uniform sampler2D A;
in vec2 vTex0;
in vec2 vTex1;
out vec4 fragColor;

void main() {
    vec4 s = texture(Rgb, vTex0);
    fragColor = vec4(s.rgb, texture(A, vTex1).x * Config.x);
}
