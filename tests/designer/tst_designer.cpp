#include "FanDisplay.h"
#include "ZoomableFanDisplay.h"

#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QPluginLoader>
#include <QRegularExpression>
#include <QUiLoader>
#include <QXmlStreamReader>
#include <QtTest>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <memory>

using namespace Halcyra::Nereon::Visualisation;

namespace {

/// Empty when at least a fifth of the display's picture differs from the background, else why not.
QString lacksPicture(FanDisplay& display)
{
    const QImage picture = display.grabFramebuffer();
    const int drawn = TestSupport::countPixelsDiffering(picture, picture.rect(), QColor(76, 76, 76));
    if (drawn >= display.width() * display.height() / 5)
        return QString();
    return QStringLiteral("%1: only %2 pixels drawn (picture: %3)")
        .arg(display.metaObject()->className())
        .arg(drawn)
        .arg(TestSupport::saveFailurePicture(picture, display.objectName()));
}

/// The class and geometry of the widget that domXml places on a new form; nothing if the XML is malformed.
std::pair<QString, QSize> domWidget(const QString& xml)
{
    QXmlStreamReader reader(xml);
    while (!reader.atEnd())
        reader.readNext();
    const auto find = [](const QString& pattern, const QString& text) {
        return QRegularExpression(pattern, QRegularExpression::DotMatchesEverythingOption)
            .match(text)
            .captured(1);
    };
    const QString rect = find(QStringLiteral("<property name=\"geometry\">\\s*<rect>(.*?)</rect>"), xml);
    if (reader.hasError())
        return {};
    return { find(QStringLiteral("<widget class=\"([^\"]*)\""), xml),
        QSize(find(QStringLiteral("<width>(\\d+)</width>"), rect).toInt(),
            find(QStringLiteral("<height>(\\d+)</height>"), rect).toInt()) };
}

} // namespace

class TestDesignerPlugin : public QObject
{
    Q_OBJECT

    QDesignerCustomWidgetCollectionInterface* collection = nullptr;

private slots:
    void initTestCase()
    {
        QPluginLoader loader(QStringLiteral(NEREON_DESIGNER_PLUGIN));
        QVERIFY2(loader.load(), qPrintable(loader.errorString()));
        collection = qobject_cast<QDesignerCustomWidgetCollectionInterface*>(loader.instance());
        QVERIFY(collection);
    }

    // First: once Designer has initialised the plugin, its widgets show samples everywhere.
    void formLoadsThroughUiLoader()
    {
        QUiLoader loader;
        loader.clearPluginPaths();
        loader.addPluginPath(QFileInfo(QStringLiteral(NEREON_DESIGNER_PLUGIN)).absolutePath());
        QVERIFY(
            loader.availableWidgets().contains(QStringLiteral("Halcyra::Nereon::Visualisation::FanDisplay")));

        QFile form(QStringLiteral(NEREON_TEST_FORM));
        QVERIFY(form.open(QIODevice::ReadOnly));
        const std::unique_ptr<QWidget> window(loader.load(&form));
        QVERIFY2(window, qPrintable(loader.errorString()));
        auto* fan = window->findChild<FanDisplay*>(QStringLiteral("fanDisplay"));
        auto* zoomable = window->findChild<ZoomableFanDisplay*>(QStringLiteral("zoomableFanDisplay"));
        QVERIFY(fan && zoomable && !qobject_cast<ZoomableFanDisplay*>(fan));

        const auto metres = TestSupport::metres();
        fan->setDistanceUnit(&metres);
        zoomable->setDistanceUnit(&metres);
        QVERIFY(TestSupport::showExposed(*window));
        // At run time the widgets wait for the application's frames: the grid only, no sample picture.
        const QImage waiting = fan->grabFramebuffer();
        QVERIFY2(TestSupport::countPixelsDiffering(waiting, waiting.rect(), QColor(76, 76, 76))
                < fan->width() * fan->height() / 8,
            "a form loaded at run time shows a picture of its own");

        const auto frame = TestSupport::uniformFrame(128, 200, 30.0, 220);
        fan->newImageReceived(frame);
        zoomable->newImageReceived(frame);
        zoomable->setZoomLevel(1.5f, false);
        for (FanDisplay* display : { fan, static_cast<FanDisplay*>(zoomable) }) {
            const QString missing = lacksPicture(*display);
            QVERIFY2(missing.isEmpty(), qPrintable(missing));
        }
    }

    void describesAndShowsEachDisplay_data()
    {
        QTest::addColumn<QString>("className");
        QTest::addColumn<QString>("header");
        QTest::newRow("FanDisplay") << "Halcyra::Nereon::Visualisation::FanDisplay"
                                    << "FanDisplay.h";
        QTest::newRow("ZoomableFanDisplay") << "Halcyra::Nereon::Visualisation::ZoomableFanDisplay"
                                            << "ZoomableFanDisplay.h";
    }
    void describesAndShowsEachDisplay()
    {
        QFETCH(QString, className);
        QFETCH(QString, header);
        const QList<QDesignerCustomWidgetInterface*> widgets = collection->customWidgets();
        QCOMPARE(widgets.size(), 2);
        const auto found = std::find_if(widgets.begin(), widgets.end(),
            [&](QDesignerCustomWidgetInterface* widget) { return widget->name() == className; });
        QVERIFY(found != widgets.end());
        QDesignerCustomWidgetInterface* plugin = *found;

        // uic writes the include, Designer and QUiLoader match widgets by these names.
        QCOMPARE(plugin->includeFile(), header);
        QVERIFY(QFileInfo::exists(QStringLiteral(NEREON_SOURCE_INCLUDE_DIR "/") + header));
        const auto [domClass, domSize] = domWidget(plugin->domXml());
        QCOMPARE(domClass, className);
        QVERIFY2(domSize.width() >= 320 && domSize.height() >= 200, "a new display needs room for its fan");
        QVERIFY(!plugin->isContainer() && !plugin->group().isEmpty() && !plugin->toolTip().isEmpty());
        QVERIFY(plugin->whatsThis().contains(QLatin1String("newImageReceived")));
        QVERIFY(!plugin->icon().pixmap(32, 32).isNull());

        // The meta-object must carry the same name, or Designer's property editor
        // and qobject_cast in the application disagree with the form.
        const std::unique_ptr<QWidget> widget(plugin->createWidget(nullptr));
        QCOMPARE(QString::fromLatin1(widget->metaObject()->className()), className);

        // In Designer the display shows a sample picture of its own.
        plugin->initialize(nullptr);
        QVERIFY(plugin->isInitialized());
        QWidget form;
        form.resize(480, 320);
        auto* display = qobject_cast<FanDisplay*>(plugin->createWidget(&form));
        QVERIFY(display);
        display->resize(form.size());
        QVERIFY(TestSupport::showExposed(form));
        const QString missing = lacksPicture(*display);
        QVERIFY2(missing.isEmpty(), qPrintable(missing));
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestDesignerPlugin test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_designer.moc"
