#version 120

uniform sampler2D palettes;
uniform sampler2D intensities;
uniform float chosenPalette;
uniform float Spread;
uniform int KernelSize;
uniform vec2 TexelSize;
uniform float UpperThreshold;
uniform float LowerThreshold;

const float TWO_PI = 6.28319;
const float E = 2.71828;

varying vec2 textureCoords;

void main()
{
    vec4 intensity;
    if (KernelSize == 0) {
        intensity = texture2D(intensities, textureCoords);
    } else {
        // Gaussian despeckle. Taps past the texture's edges wrap around (the
        // intensity texture repeats); the weights are normalised by their sum.
        int r = (KernelSize - 1) / 2;
        float sigmaSquared = Spread * Spread;
        float weightSum = 0.0;
        vec3 colour = vec3(0.0);
        for (int x = -r; x <= r; ++x) {
            for (int y = -r; y <= r; ++y) {
                float weight = (1.0 / sqrt(TWO_PI * sigmaSquared))
                               * pow(E, -float(x * x + y * y) / (2.0 * sigmaSquared));
                weightSum += weight;
                vec2 offset = vec2(float(x) * TexelSize.x, float(y) * TexelSize.y);
                colour += weight * texture2D(intensities, textureCoords + offset).rgb;
            }
        }
        intensity = vec4(colour / weightSum, 1.0);
    }

    // Clamp without stretching: out-of-range intensities show the palette's
    // entry at the threshold.
    float value = clamp(intensity.r, LowerThreshold, UpperThreshold);
    gl_FragColor = texture2D(palettes, vec2(value, chosenPalette));
}
