#include "export/FrameRenderer.h"

#include "FanDisplay.h"
#include "LinearUnit.h"
#include "export/ExportOptions.h"
#include "nereon/NereonImage.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>

#include <algorithm>

namespace Halcyra::Nereon::Export {

using Visualisation::FanDisplay;
using Visualisation::LinearUnit;
namespace Options = Visualisation::FanDisplayOptions;

struct FrameRenderer::Parts
{
    FanDisplay display;
};

FrameRenderer::FrameRenderer(const ExportOptions& options)
{
    const int limit = getMaximumSize();
    if (limit == 0) {
        errorString = QStringLiteral("no OpenGL context can be made here (an X server or Xvfb is needed)");
        return;
    }
    const QSize size = options.size;
    if (size.width() < 1 || size.height() < 1 || size.width() > limit || size.height() > limit) {
        errorString = QStringLiteral("a picture of %1 x %2 pixels cannot be drawn: 1 to %3 pixels a side")
                          .arg(size.width())
                          .arg(size.height())
                          .arg(limit);
        return;
    }
    parts = std::make_unique<Parts>();
    FanDisplay& display = parts->display;
    // Drawn and read back, never put on a screen.
    display.setAttribute(Qt::WA_DontShowOnScreen);
    display.setDistanceUnit(options.feet ? &LinearUnit::feet() : &LinearUnit::metres());
    display.setAreaUnit(options.feet ? &LinearUnit::squareFeet() : &LinearUnit::squareMetres());
    display.setColourScaleVisible(options.colourScale);
    display.setAutomaticGridColour(options.automaticGridColour);
    if (options.look)
        display.configureFromSettings(*options.look);
    if (options.palette >= 0)
        display.setPalette(static_cast<Options::Palette>(options.palette));
    if (options.paletteModifier >= 0)
        display.setPaletteModifier(std::uint8_t(std::clamp(options.paletteModifier, 0, 255)));
    if (options.despeckleLevel >= 0)
        display.setDespeckleLevel(options.despeckleLevel);
    if (options.clampLevel >= 0.0)
        display.setClampLevel(float(options.clampLevel));
    display.resize(size);
    display.show();
}

FrameRenderer::~FrameRenderer() = default;

bool FrameRenderer::isValid() const
{
    return parts != nullptr;
}

QString FrameRenderer::getErrorString() const
{
    return errorString;
}

int FrameRenderer::getMaximumSize()
{
    static const int maximum = [] {
        QOffscreenSurface surface;
        surface.create();
        QOpenGLContext context;
        if (!context.create() || !context.makeCurrent(&surface))
            return 0;
        QOpenGLFunctions* gl = context.functions();
        GLint texture = 0, renderbuffer = 0;
        GLint viewport[2] = { 0, 0 };
        gl->glGetIntegerv(GL_MAX_TEXTURE_SIZE, &texture);
        gl->glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &renderbuffer);
        gl->glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
        context.doneCurrent();
        return std::min({ int(texture), int(renderbuffer), int(viewport[0]), int(viewport[1]) });
    }();
    return maximum;
}

void FrameRenderer::addFrame(const Halcyra::Nereon::NereonImage& image)
{
    if (parts)
        parts->display.newImageReceived(image);
}

QImage FrameRenderer::grab()
{
    if (!parts)
        return QImage();
    return parts->display.grabFramebuffer().convertToFormat(QImage::Format_RGB32);
}

} // namespace Halcyra::Nereon::Export
