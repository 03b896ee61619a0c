#version 300 es
// Vertex shader 1: position and 1 texture coordinate set. Positions arrive in clip space already.
in vec3 aPosition;
in vec2 aTex0;
out vec2 vTex0;
void main() {
    gl_Position = vec4(aPosition.xy, 0.0, 1.0);
    vTex0 = aTex0;
}
