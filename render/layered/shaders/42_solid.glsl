#version 300 es
precision highp float;
// Solid colour: Config as it is.
uniform vec4 Config;
out vec4 fragColor;

void main() {
    fragColor = Config;
}
