#include "palettes/AbstractPalette.h"

namespace Halcyra::Nereon::Visualisation::Palettes {

AbstractPalette::AbstractPalette()
    : QOpenGLTexture(QOpenGLTexture::Target2D)
{
}

AbstractPalette::~AbstractPalette() = default;

void AbstractPalette::initialisePalette()
{
    // Nearest when minified keeps a narrow fan from averaging distant entries;
    // linear when magnified smooths the steps between neighbouring entries.
    setMinificationFilter(QOpenGLTexture::Nearest);
    setMagnificationFilter(QOpenGLTexture::Linear);
    // Intensities 0 and 1 must hit the end entries, not blend with the far edge.
    setWrapMode(QOpenGLTexture::ClampToEdge);
    setFormat(QOpenGLTexture::RGBA8_UNorm);
}

void AbstractPalette::bindPalette(int textureUnit)
{
    bind(static_cast<uint>(textureUnit));
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
