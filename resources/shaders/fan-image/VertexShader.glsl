#version 120

// Fan coordinates in, clip coordinates out; only x and y are supplied, so z is
// 0 and w is 1.
attribute vec4 aPosition;
attribute vec2 aTextureCoords;

uniform mat4x4 projection;

varying vec2 textureCoords;

void main()
{
    textureCoords = aTextureCoords;
    gl_Position = projection * aPosition;
}
