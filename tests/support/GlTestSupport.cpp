#include "GlTestSupport.h"

#include <QDir>
#include <QOpenGLContext>
#include <QOpenGLDebugLogger>
#include <QOpenGLFunctions_2_0>
#include <QSurfaceFormat>
#include <QTest>
#include <QWidget>
#if QT_VERSION_MAJOR >= 6
#include <QOpenGLVersionFunctionsFactory>
#endif

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <link.h>

namespace TestSupport {

void useTestSurfaceFormat()
{
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setOption(QSurfaceFormat::DebugContext);
    format.setSamples(4);
    QSurfaceFormat::setDefaultFormat(format);
}

QOpenGLFunctions_2_0* gl20Functions(QOpenGLContext* context)
{
#if QT_VERSION_MAJOR >= 6
    auto* functions = QOpenGLVersionFunctionsFactory::get<QOpenGLFunctions_2_0>(context);
#else
    auto* functions = context->versionFunctions<QOpenGLFunctions_2_0>();
#endif
    return functions && functions->initializeOpenGLFunctions() ? functions : nullptr;
}

void keepGlDriverLoaded()
{
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void*) {
            if (info->dlpi_name && std::strstr(info->dlpi_name, "_dri.so")) {
                // Taking a reference with RTLD_NODELETE pins the object for good.
                dlopen(info->dlpi_name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
            }
            return 0;
        },
        nullptr);
}

bool showExposed(QWidget& widget)
{
    widget.show();
    const bool exposed = QTest::qWaitForWindowExposed(&widget);
    keepGlDriverLoaded();
    return exposed;
}

bool pixelMatches(const QImage& image, QPoint at, const QColor& expected, int tolerance)
{
    if (!image.rect().contains(at))
        return false;
    const QColor actual = image.pixelColor(at);
    return std::abs(actual.red() - expected.red()) <= tolerance
        && std::abs(actual.green() - expected.green()) <= tolerance
        && std::abs(actual.blue() - expected.blue()) <= tolerance;
}

QString describePixel(const QImage& image, QPoint at, const QColor& expected)
{
    const QColor actual = image.rect().contains(at) ? image.pixelColor(at) : QColor();
    return QStringLiteral("(%1,%2) = rgb(%3,%4,%5), expected rgb(%6,%7,%8)")
        .arg(at.x())
        .arg(at.y())
        .arg(actual.red())
        .arg(actual.green())
        .arg(actual.blue())
        .arg(expected.red())
        .arg(expected.green())
        .arg(expected.blue());
}

QString saveFailurePicture(const QImage& image, const QString& label)
{
    QString name = QString::fromLatin1(QTest::currentTestFunction());
    if (const char* tag = QTest::currentDataTag())
        name += QLatin1Char('-') + QString::fromLatin1(tag).replace(QLatin1Char(' '), QLatin1Char('_'));
    const QString path
        = QDir::current().absoluteFilePath(name + QLatin1Char('-') + label + QStringLiteral(".png"));
    image.save(path);
    return path;
}

int countPixelsDiffering(const QImage& image, const QRect& rect, const QColor& background, int tolerance)
{
    int count = 0;
    const QRect clipped = rect.intersected(image.rect());
    for (int y = clipped.top(); y <= clipped.bottom(); ++y) {
        for (int x = clipped.left(); x <= clipped.right(); ++x) {
            if (!pixelMatches(image, QPoint(x, y), background, tolerance))
                ++count;
        }
    }
    return count;
}

GlErrorWatcher::GlErrorWatcher(QOpenGLContext* context)
    : logger(std::make_unique<QOpenGLDebugLogger>())
{
    if (!context || !logger->initialize())
        return;
    QObject::connect(logger.get(), &QOpenGLDebugLogger::messageLogged,
        [this](const QOpenGLDebugMessage& message) { messages.push_back(message); });
    logger->startLogging(QOpenGLDebugLogger::SynchronousLogging);
}

GlErrorWatcher::~GlErrorWatcher() = default;

bool GlErrorWatcher::isLogging() const
{
    return logger->isLogging();
}

std::vector<QOpenGLDebugMessage> GlErrorWatcher::errors() const
{
    std::vector<QOpenGLDebugMessage> result;
    for (const QOpenGLDebugMessage& message : messages) {
        if (message.type() == QOpenGLDebugMessage::ErrorType)
            result.push_back(message);
    }
    return result;
}

} // namespace TestSupport
