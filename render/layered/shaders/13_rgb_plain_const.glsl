#version 300 es
precision highp float;
// RGB texture: colour as sampled; alpha: the constant alpha.
uniform vec4 Config;
uniform sampler2D Rgba;
in vec2 vTex0;
out vec4 fragColor;

void main() {
    vec4 s = texture(Rgba, vTex0);
    fragColor = vec4(s.rgb, Config.x);
}
