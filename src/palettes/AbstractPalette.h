#pragma once

#include <QOpenGLTexture>

namespace Halcyra::Nereon::Visualisation::Palettes {

/**
 * A colour table as a 2-D texture: s is the intensity in 0..1. The palette is
 * itself the texture. initialisePalette() needs a current GL context.
 */
class AbstractPalette : public QOpenGLTexture
{
public:
    AbstractPalette();
    // QOpenGLTexture's destructor is not virtual; the palette family starts its own.
    virtual ~AbstractPalette();

    /// Filters nearest/linear, clamp to edge, RGBA8.
    virtual void initialisePalette();
    /// Binds the palette to the texture unit, leaving that unit active.
    virtual void bindPalette(int textureUnit);
};

} // namespace Halcyra::Nereon::Visualisation::Palettes
