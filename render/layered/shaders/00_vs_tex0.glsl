#version 300 es
// Vertex shader 0: position only. Positions arrive in clip space already.
in vec3 aPosition;
void main() {
    gl_Position = vec4(aPosition.xy, 0.0, 1.0);
}
