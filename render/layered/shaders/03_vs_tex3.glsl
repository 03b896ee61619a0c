#version 300 es
// Vertex shader 3: position and 3 texture coordinate sets. Positions arrive in clip space already.
in vec3 aPosition;
in vec2 aTex0;
out vec2 vTex0;
in vec2 aTex1;
out vec2 vTex1;
in vec2 aTex2;
out vec2 vTex2;
void main() {
    gl_Position = vec4(aPosition.xy, 0.0, 1.0);
    vTex0 = aTex0;
    vTex1 = aTex1;
    vTex2 = aTex2;
}
