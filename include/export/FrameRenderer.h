#pragma once

#include "TernwickNereonExportExport.h"

#include "FanDisplayOptions.h"

#include <QImage>
#include <QSize>
#include <QString>

#include <memory>

namespace Halcyra::Nereon {
class NereonImage;
}

namespace Halcyra::Nereon::Export {

struct ExportOptions;

/**
 * Draws frames exactly as a FanDisplay of a chosen size shows them, overlays
 * included, without putting anything on a screen, and hands out the pictures.
 *
 * It owns a FanDisplay that is never shown on screen (Qt::WA_DontShowOnScreen): the
 * display's own engine, palettes and overlays draw into its GL framebuffer, which is
 * read back. It needs a QApplication whose platform can create GL contexts: on X11
 * (or under Xvfb, where the GL is Mesa's llvmpipe) the xcb platform. Use it on the
 * GUI thread.
 */
class TERNWICK_NEREON_EXPORT_EXPORT FrameRenderer
{
public:
    /// A renderer of pictures of `options.size` with the look, palette, despeckle and clamp
    /// of `options`. Check isValid().
    explicit FrameRenderer(const ExportOptions& options);
    ~FrameRenderer();
    FrameRenderer(const FrameRenderer&) = delete;
    FrameRenderer& operator=(const FrameRenderer&) = delete;

    /// Whether pictures can be drawn; getErrorString() says why not.
    bool isValid() const;
    /// Why pictures cannot be drawn.
    QString getErrorString() const;

    /// The largest width or height this machine's GL draws; 0 when no GL context can be made.
    static int getMaximumSize();

    /// Hands a frame to the display, as a sonar would: thresholds follow every frame given.
    void addFrame(const Halcyra::Nereon::NereonImage& image);
    /// The picture of the last frame given, RGB32, of the chosen size.
    QImage grab();

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
    QString errorString;
};

} // namespace Halcyra::Nereon::Export
