#include "palettes/StandardPalettes.h"

#include <QImage>
#include <QString>

namespace Halcyra::Nereon::Visualisation::Palettes {

void StandardPalettes::initialisePalette()
{
    AbstractPalette::initialisePalette();

    const QImage image(QStringLiteral(":/ternwick-nereon-visualisation/texture-images/palettes.bmp"));
    // A missing picture leaves the texture empty; Qt would only warn about it.
    if (image.isNull())
        return;
    // GL's first row is t = 0, so the picture's bottom band (palette 5) must go first.
    setData(image.mirrored(false, true), QOpenGLTexture::DontGenerateMipMaps);
}

} // namespace Halcyra::Nereon::Visualisation::Palettes
