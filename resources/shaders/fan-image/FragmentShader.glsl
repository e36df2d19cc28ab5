#version 120

uniform sampler2D palettes;
uniform sampler2D intensities;
uniform float chosenPalette;
uniform float UpperThreshold;
uniform float LowerThreshold;

varying vec2 textureCoords;

void main()
{
    // The intensities arrive already despeckled (smoothed once per frame in
    // texture space), so one sample gives the picture of the whole kernel.
    float intensity = texture2D(intensities, textureCoords).r;

    // Clamp without stretching: out-of-range intensities show the palette's
    // entry at the threshold.
    float value = clamp(intensity, LowerThreshold, UpperThreshold);
    gl_FragColor = texture2D(palettes, vec2(value, chosenPalette));
}
