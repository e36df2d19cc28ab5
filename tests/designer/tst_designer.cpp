#include "FanDisplay.h"
#include "ZoomableFanDisplay.h"

#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QPluginLoader>
#include <QUiLoader>
#include <QXmlStreamReader>
#include <QtTest>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <memory>

using namespace Halcyra::Nereon::Visualisation;

namespace {

const QColor Background(76, 76, 76);

/// Pixels of the display's picture that differ from the background.
int drawnPixels(FanDisplay& display)
{
    const QImage picture = display.grabFramebuffer();
    return TestSupport::countPixelsDiffering(picture, picture.rect(), Background);
}

QDesignerCustomWidgetInterface* findWidget(
    QDesignerCustomWidgetCollectionInterface& collection, const QString& className)
{
    for (QDesignerCustomWidgetInterface* widget : collection.customWidgets())
        if (widget->name() == className)
            return widget;
    return nullptr;
}

/// The class and geometry of the widget that domXml places on a new form.
struct DomWidget
{
    QString className;
    QSize size;
};

DomWidget parseDomXml(const QString& xml)
{
    DomWidget result;
    QXmlStreamReader reader(xml);
    bool inGeometry = false;
    while (reader.readNextStartElement() || !reader.atEnd()) {
        if (!reader.isStartElement())
            continue;
        if (reader.name() == QLatin1String("widget") && result.className.isEmpty())
            result.className = reader.attributes().value(QStringLiteral("class")).toString();
        else if (reader.name() == QLatin1String("property"))
            inGeometry = reader.attributes().value(QStringLiteral("name")) == QLatin1String("geometry");
        else if (inGeometry && reader.name() == QLatin1String("width"))
            result.size.setWidth(reader.readElementText().toInt());
        else if (inGeometry && reader.name() == QLatin1String("height"))
            result.size.setHeight(reader.readElementText().toInt());
    }
    return result;
}

} // namespace

class TestDesignerPlugin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void describesEachDisplay_data();
    void describesEachDisplay();
    void formLoadsThroughUiLoader();
    void designerShowsSamplePicture_data();
    void designerShowsSamplePicture();

private:
    QDesignerCustomWidgetCollectionInterface* collection = nullptr;
};

void TestDesignerPlugin::initTestCase()
{
    QPluginLoader loader(QStringLiteral(NEREON_DESIGNER_PLUGIN));
    QVERIFY2(loader.load(), qPrintable(loader.errorString()));
    collection = qobject_cast<QDesignerCustomWidgetCollectionInterface*>(loader.instance());
    QVERIFY(collection);
}

void TestDesignerPlugin::describesEachDisplay_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("header");
    QTest::newRow("FanDisplay") << "Halcyra::Nereon::Visualisation::FanDisplay"
                                << "FanDisplay.h";
    QTest::newRow("ZoomableFanDisplay") << "Halcyra::Nereon::Visualisation::ZoomableFanDisplay"
                                        << "ZoomableFanDisplay.h";
}

void TestDesignerPlugin::describesEachDisplay()
{
    QFETCH(QString, className);
    QFETCH(QString, header);
    QCOMPARE(collection->customWidgets().size(), 2);
    QDesignerCustomWidgetInterface* plugin = findWidget(*collection, className);
    QVERIFY(plugin);

    // uic writes the include, Designer and QUiLoader match widgets by these names.
    QCOMPARE(plugin->includeFile(), header);
    QVERIFY(QFileInfo::exists(QStringLiteral(NEREON_SOURCE_INCLUDE_DIR "/") + header));
    const DomWidget dom = parseDomXml(plugin->domXml());
    QCOMPARE(dom.className, className);
    QVERIFY2(dom.size.width() >= 320 && dom.size.height() >= 200, "a new display needs room for its fan");
    QVERIFY(!plugin->isContainer());
    QVERIFY(!plugin->group().isEmpty());
    QVERIFY(!plugin->toolTip().isEmpty());
    QVERIFY(plugin->whatsThis().contains(QLatin1String("newImageReceived")));
    QVERIFY(!plugin->icon().pixmap(32, 32).isNull());

    // The meta-object must carry the same name, or Designer's property editor
    // and qobject_cast in the application disagree with the form.
    const std::unique_ptr<QWidget> widget(plugin->createWidget(nullptr));
    QCOMPARE(QString::fromLatin1(widget->metaObject()->className()), className);
}

void TestDesignerPlugin::formLoadsThroughUiLoader()
{
    QUiLoader loader;
    loader.clearPluginPaths();
    loader.addPluginPath(QFileInfo(QStringLiteral(NEREON_DESIGNER_PLUGIN)).absolutePath());
    QVERIFY(loader.availableWidgets().contains(QStringLiteral("Halcyra::Nereon::Visualisation::FanDisplay")));

    QFile form(QStringLiteral(NEREON_TEST_FORM));
    QVERIFY(form.open(QIODevice::ReadOnly));
    const std::unique_ptr<QWidget> window(loader.load(&form));
    QVERIFY2(window, qPrintable(loader.errorString()));

    auto* fan = window->findChild<FanDisplay*>(QStringLiteral("fanDisplay"));
    auto* zoomable = window->findChild<ZoomableFanDisplay*>(QStringLiteral("zoomableFanDisplay"));
    QVERIFY(fan);
    QVERIFY(zoomable);
    QVERIFY(!qobject_cast<ZoomableFanDisplay*>(fan));

    const auto metres = TestSupport::metres();
    fan->setDistanceUnit(&metres);
    zoomable->setDistanceUnit(&metres);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    TestSupport::keepGlDriverLoaded();

    const int fanArea = fan->width() * fan->height();
    // At run time the widgets wait for the application's frames: the grid only, no sample picture.
    QVERIFY2(drawnPixels(*fan) < fanArea / 8, "a form loaded at run time shows a picture of its own");

    const auto frame = TestSupport::uniformFrame(128, 200, 30.0, 220);
    fan->newImageReceived(frame);
    zoomable->newImageReceived(frame);
    zoomable->setZoomLevel(1.5f, false);
    for (FanDisplay* display : { fan, static_cast<FanDisplay*>(zoomable) }) {
        const int drawn = drawnPixels(*display);
        if (drawn < display->width() * display->height() / 5)
            QFAIL(qPrintable(QStringLiteral("%1: only %2 pixels drawn (picture: %3)")
                                 .arg(display->objectName())
                                 .arg(drawn)
                                 .arg(TestSupport::saveFailurePicture(
                                     display->grabFramebuffer(), display->objectName()))));
    }
}

void TestDesignerPlugin::designerShowsSamplePicture_data()
{
    QTest::addColumn<QString>("className");
    QTest::newRow("FanDisplay") << "Halcyra::Nereon::Visualisation::FanDisplay";
    QTest::newRow("ZoomableFanDisplay") << "Halcyra::Nereon::Visualisation::ZoomableFanDisplay";
}

void TestDesignerPlugin::designerShowsSamplePicture()
{
    QFETCH(QString, className);
    QDesignerCustomWidgetInterface* plugin = findWidget(*collection, className);
    QVERIFY(plugin);
    plugin->initialize(nullptr);
    QVERIFY(plugin->isInitialized());

    QWidget form;
    form.resize(480, 320);
    auto* display = qobject_cast<FanDisplay*>(plugin->createWidget(&form));
    QVERIFY(display);
    display->resize(form.size());
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));

    const int drawn = drawnPixels(*display);
    if (drawn < display->width() * display->height() / 5)
        QFAIL(qPrintable(QStringLiteral("only %1 pixels of the sample drawn (picture: %2)")
                             .arg(drawn)
                             .arg(TestSupport::saveFailurePicture(display->grabFramebuffer(), "sample"))));
}

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestDesignerPlugin test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_designer.moc"
