#pragma once

#include <QColor>
#include <QImage>
#include <QOpenGLDebugMessage>
#include <QPoint>
#include <QString>

#include <memory>
#include <vector>

class QOpenGLDebugLogger;
class QOpenGLContext;
class QOpenGLFunctions_2_0;
class QWidget;

namespace TestSupport {

/**
 * Default surface format for GL tests: a debug context (so GL errors are
 * reported) with 4 samples, as the widgets use. Call before QApplication.
 */
void useTestSurfaceFormat();

/**
 * Keeps Mesa's driver loaded until exit, so that a sanitizer build does not
 * report the driver's own memory as leaked when it is unloaded. Call once a
 * GL context exists; harmless otherwise.
 */
void keepGlDriverLoaded();

/**
 * Shows the widget, waits until its window is exposed and keeps the GL driver
 * loaded (see keepGlDriverLoaded). False when the window never got exposed.
 */
bool showExposed(QWidget& widget);

/**
 * The OpenGL 2.0 functions of the context (which must be current), resolved,
 * or null when the context does not offer them. Qt 5 and Qt 6 reach them by
 * different calls.
 */
QOpenGLFunctions_2_0* gl20Functions(QOpenGLContext* context);

/// Whether every channel of the pixel is within tolerance of expected.
bool pixelMatches(const QImage& image, QPoint at, const QColor& expected, int tolerance = 3);

/// Describes a pixel for failure messages: "(x,y) = rgb(r,g,b), expected rgb(...)".
QString describePixel(const QImage& image, QPoint at, const QColor& expected);

/**
 * Saves the picture as <test function>-<label>.png in the working directory
 * and returns the path, so a failed pixel check can be looked at.
 */
QString saveFailurePicture(const QImage& image, const QString& label);

/// Number of pixels in rect whose colour differs from background by more than tolerance.
int countPixelsDiffering(
    const QImage& image, const QRect& rect, const QColor& background, int tolerance = 24);

/**
 * Collects the GL debug messages of a context (which must be current and
 * created with a debug format). errors() lists those of type error.
 */
class GlErrorWatcher
{
public:
    explicit GlErrorWatcher(QOpenGLContext* context);
    ~GlErrorWatcher();

    bool isLogging() const;
    std::vector<QOpenGLDebugMessage> errors() const;

private:
    std::unique_ptr<QOpenGLDebugLogger> logger;
    std::vector<QOpenGLDebugMessage> messages;
};

} // namespace TestSupport

/// QCOMPARE-like check of one pixel that saves the picture when it fails.
#define NEREON_VERIFY_PIXEL(image, point, expected, tolerance)                                               \
    do {                                                                                                     \
        if (!TestSupport::pixelMatches((image), (point), (expected), (tolerance))) {                         \
            const QString path = TestSupport::saveFailurePicture((image), QStringLiteral("actual"));         \
            QFAIL(qPrintable(TestSupport::describePixel((image), (point), (expected))                        \
                + QStringLiteral(" (picture: ") + path + QStringLiteral(")")));                              \
        }                                                                                                    \
    } while (false)
