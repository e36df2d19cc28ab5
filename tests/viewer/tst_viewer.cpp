#include "ConvertedUnit.h"
#include "DisplaySettingsStore.h"
#include "MainWindow.h"
#include "SimulatedSonar.h"
#include "SonarScene.h"
#include "ViewerOptions.h"

#include "GlTestSupport.h"

#include "ZoomableFanDisplay.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtMath>

#include <cmath>
#include <functional>
#include <memory>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;

Q_DECLARE_METATYPE(const ConvertedUnit*)

namespace {

/// Mean intensity over the samples whose fan position satisfies `inside` (fractions of the range).
double meanWhere(const NereonImage& image, const SonarConfiguration& configuration,
    const std::function<bool(double bearing, double r)>& inside)
{
    const int width = image.getWidth();
    const int height = image.getHeight();
    double sum = 0.0;
    int count = 0;
    for (int row = 0; row < height; ++row) {
        const double r = (row + 1.0) / height;
        for (int beam = 0; beam < width; ++beam) {
            const double bearing = qDegreesToRadians(
                -configuration.apertureDegrees / 2.0 + configuration.apertureDegrees * beam / (width - 1));
            if (inside(bearing, r)) {
                sum += image.getData()[std::size_t(row) * width + beam];
                ++count;
            }
        }
    }
    return count > 0 ? sum / count : -1.0;
}

template <typename T> T* child(QWidget& window, const char* name)
{
    T* found = window.findChild<T*>(name);
    if (!found)
        qFatal("no child %s", name);
    return found;
}

} // namespace

class TestViewer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void frameLayout_data();
    void frameLayout();
    void sceneLooksLikeSonar();
    void speckleChangesEveryFrame();

    void sonarSendsFramesAcrossThreads();

    void unitConversion_data();
    void unitConversion();

    void settingsRoundTrip();
    void unusableSettingsFallBack();

    void commandLine_data();
    void commandLine();

    void lookSurvivesRestart();
    void statusBarShowsPositionInChosenUnit();
};

void TestViewer::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setOrganizationName("TernwickTest");
    QCoreApplication::setApplicationName("tst_viewer");
    QSettings().clear();
}

void TestViewer::frameLayout_data()
{
    QTest::addColumn<int>("beams");
    QTest::addColumn<double>("aperture");
    QTest::addColumn<int>("lines");
    QTest::addColumn<double>("range");
    QTest::newRow("256 wide") << 256 << 130.0 << 500 << 40.0;
    QTest::newRow("512 narrow") << 512 << 90.0 << 1000 << 120.0;
    QTest::newRow("short range, few lines") << 512 << 170.0 << 100 << 2.5;
}

void TestViewer::frameLayout()
{
    QFETCH(int, beams);
    QFETCH(double, aperture);
    QFETCH(int, lines);
    QFETCH(double, range);
    SonarConfiguration configuration;
    configuration.beamCount = beams;
    configuration.apertureDegrees = aperture;
    configuration.rangeLines = lines;
    configuration.range = range;
    SonarScene scene(configuration);
    const NereonImage image = scene.renderFrame(1.0);

    QCOMPARE(int(image.getWidth()), beams);
    QCOMPARE(int(image.getHeight()), lines);
    QCOMPARE(image.getData().size(), std::size_t(beams) * lines);
    QCOMPARE(image.getRange(), range);
    const auto& bearings = image.getBearings();
    QCOMPARE(int(bearings.size()), beams);
    QCOMPARE(int(bearings.front()), int(std::lround(-aperture * 50.0)));
    QCOMPARE(int(bearings.back()), int(std::lround(aperture * 50.0)));
    QVERIFY(std::is_sorted(bearings.begin(), bearings.end()));
    QVERIFY(std::adjacent_find(bearings.begin(), bearings.end()) == bearings.end());
}

void TestViewer::sceneLooksLikeSonar()
{
    SonarConfiguration configuration;
    SonarScene scene(configuration);
    const NereonImage image = scene.renderFrame(0.0);
    auto mean = [&](const std::function<bool(double, double)>& inside) {
        return meanWhere(image, configuration, inside);
    };

    const double waterColumn = mean([](double, double r) { return r < 0.09; });
    const double nearSeabed = mean([](double, double r) { return r > 0.2 && r < 0.3; });
    const double farSeabed = mean([](double, double r) { return r > 0.85 && r < 0.95; });
    QVERIFY2(waterColumn < 0.5 * nearSeabed, qPrintable(QString("%1 %2").arg(waterColumn).arg(nearSeabed)));
    QVERIFY2(farSeabed < 0.85 * nearSeabed, qPrintable(QString("%1 %2").arg(farSeabed).arg(nearSeabed)));

    std::vector<SonarScene::Target> targets = SonarScene::getFixedTargets();
    targets.push_back(SonarScene::getMovingTarget(0.0));
    for (const SonarScene::Target& target : targets) {
        const double distance = std::hypot(target.x, target.y);
        const double bearing = std::atan2(target.x, target.y);
        const double halfWidth = std::asin(target.radius / distance);
        auto beside = [&](double b) {
            const double off = std::abs(b - bearing);
            return off > 2.5 * halfWidth && off < 4.0 * halfWidth;
        };
        const double echo = mean([&](double b, double r) {
            return std::hypot(r * std::sin(b) - target.x, r * std::cos(b) - target.y) < 0.5 * target.radius;
        });
        const double echoBeside = mean(
            [&](double b, double r) { return beside(b) && std::abs(r - distance) < 0.5 * target.radius; });
        // Just behind the object for seabed targets, further out for the one in mid-water.
        const double shadowFrom = distance + target.radius + (&target == &targets.back() ? 0.14 : 0.01);
        const double shadowTo = shadowFrom + 0.4 * target.shadowLength * distance;
        const double shadow = mean([&](double b, double r) {
            return std::abs(b - bearing) < 0.5 * halfWidth && r > shadowFrom && r < shadowTo;
        });
        const double shadowBeside
            = mean([&](double b, double r) { return beside(b) && r > shadowFrom && r < shadowTo; });
        const QString where = QString("target at (%1, %2): echo %3 beside %4, shadow %5 beside %6")
                                  .arg(target.x)
                                  .arg(target.y)
                                  .arg(echo)
                                  .arg(echoBeside)
                                  .arg(shadow)
                                  .arg(shadowBeside);
        QVERIFY2(echo > 1.5 * echoBeside, qPrintable(where));
        QVERIFY2(shadow < 0.5 * shadowBeside, qPrintable(where));
    }

    // The moving object leaves the place where it was.
    const SonarScene::Target start = SonarScene::getMovingTarget(0.0);
    const NereonImage later = scene.renderFrame(7.5);
    auto atStart = [&](double b, double r) {
        return std::hypot(r * std::sin(b) - start.x, r * std::cos(b) - start.y) < 0.5 * start.radius;
    };
    QVERIFY(meanWhere(later, configuration, atStart) < 0.7 * mean(atStart));
}

void TestViewer::speckleChangesEveryFrame()
{
    SonarConfiguration configuration;
    SonarScene scene(configuration);
    const NereonImage first = scene.renderFrame(2.0);
    const NereonImage second = scene.renderFrame(2.0);
    int differing = 0;
    double firstSum = 0.0;
    double secondSum = 0.0;
    for (std::size_t i = 0; i < first.getData().size(); ++i) {
        differing += first.getData()[i] != second.getData()[i];
        firstSum += first.getData()[i];
        secondSum += second.getData()[i];
    }
    QVERIFY(differing > int(first.getData().size() / 2));
    QVERIFY(std::abs(firstSum - secondSum) < 0.02 * firstSum);
}

void TestViewer::sonarSendsFramesAcrossThreads()
{
    SonarConfiguration configuration;
    configuration.frameRate = 50;
    QThread thread;
    auto* sonar = new SimulatedSonar(configuration);
    sonar->moveToThread(&thread);
    connect(&thread, &QThread::finished, sonar, &QObject::deleteLater);
    connect(&thread, &QThread::started, sonar, &SimulatedSonar::start);

    QObject receiver;
    std::vector<NereonImage> frames;
    bool onGuiThread = true;
    bool acknowledge = false;
    int disconnections = 0;
    connect(sonar, &SimulatedSonar::newImage, &receiver, [&](const NereonImage& image) {
        onGuiThread = onGuiThread && QThread::currentThread() == qApp->thread();
        frames.push_back(image);
        if (acknowledge)
            sonar->frameDelivered();
    });
    connect(sonar, &SimulatedSonar::disconnected, &receiver, [&] { ++disconnections; });
    thread.start();

    // A consumer that never takes its frames holds the sonar back.
    QTRY_COMPARE(frames.size(), std::size_t(3));
    QTest::qWait(200);
    QCOMPARE(frames.size(), std::size_t(3));
    sonar->frameDelivered();
    QTRY_COMPARE(frames.size(), std::size_t(4));

    acknowledge = true;
    for (int i = 0; i < 4; ++i)
        sonar->frameDelivered();
    configuration.beamCount = 512;
    QMetaObject::invokeMethod(sonar, [sonar, configuration] { sonar->setConfiguration(configuration); });
    QTRY_VERIFY(frames.back().getWidth() == 512);
    QVERIFY(onGuiThread);
    QCOMPARE(int(frames.front().getWidth()), 256);

    QMetaObject::invokeMethod(sonar, &SimulatedSonar::stop);
    QTRY_COMPARE(disconnections, 1);
    thread.quit();
    QVERIFY(thread.wait(5000));
}

void TestViewer::unitConversion_data()
{
    QTest::addColumn<const ConvertedUnit*>("unit");
    QTest::addColumn<double>("base");
    QTest::addColumn<double>("converted");
    QTest::addColumn<QString>("symbol");
    QTest::newRow("metres") << &ConvertedUnit::metres() << 2.5 << 2.5 << "m";
    QTest::newRow("one foot") << &ConvertedUnit::feet() << 0.3048 << 1.0 << "ft";
    QTest::newRow("hundred metres in feet") << &ConvertedUnit::feet() << 100.0 << 328.0839895 << "ft";
    QTest::newRow("square metres") << &ConvertedUnit::squareMetres() << 7.0 << 7.0 << "m\u00b2";
    QTest::newRow("square metre in square feet")
        << &ConvertedUnit::squareFeet() << 1.0 << 10.7639104 << "ft\u00b2";
}

void TestViewer::unitConversion()
{
    QFETCH(const ConvertedUnit*, unit);
    QFETCH(double, base);
    QFETCH(double, converted);
    QFETCH(QString, symbol);
    QVERIFY(std::abs(unit->convertFromBase(base) - converted) < 1e-6);
    QVERIFY(std::abs(unit->convertToBase(converted) - base) < 1e-6);
    QCOMPARE(QString::fromStdString(unit->getSymbol()), symbol);
    QCOMPARE(unit->isBaseUnit(), base == converted);
}

void TestViewer::settingsRoundTrip()
{
    FanDisplayOptions::DisplaySettings look;
    look.palette = FanDisplayOptions::Aqua;
    look.paletteModifier = 77;
    look.horizontalFlip = true;
    look.clearColour = QColor(10, 20, 30);
    look.textColour = QColor(200, 100, 50, 128);
    look.showRangeLabels = true;
    look.showRangeArcs = false;
    look.showRangeLines = true;
    look.scale = { 1.5f, 0.25f, 1.0f };
    look.translation = { 0.125f, -0.5f, 0.0f };
    look.rotation = 270.0f;

    QTemporaryDir folder;
    const QString path = folder.filePath("viewer.ini");
    {
        QSettings settings(path, QSettings::IniFormat);
        settings.beginGroup("display");
        DisplaySettingsStore::write(settings, look);
    }
    QSettings settings(path, QSettings::IniFormat);
    settings.beginGroup("display");
    const auto read = DisplaySettingsStore::read(settings, FanDisplayOptions::DisplaySettings());

    QCOMPARE(read.palette, look.palette);
    QCOMPARE(read.paletteModifier, look.paletteModifier);
    QCOMPARE(read.horizontalFlip, true);
    QCOMPARE(read.clearColour, look.clearColour);
    QCOMPARE(read.textColour, look.textColour);
    QCOMPARE(read.showRangeLabels, true);
    QCOMPARE(read.showRangeArcs, false);
    QCOMPARE(read.showRangeLines, true);
    QCOMPARE(read.scale.x, 1.5f);
    QCOMPARE(read.scale.y, 0.25f);
    QCOMPARE(read.translation.x, 0.125f);
    QCOMPARE(read.translation.y, -0.5f);
    QCOMPARE(read.rotation, 270.0f);
}

void TestViewer::unusableSettingsFallBack()
{
    FanDisplayOptions::DisplaySettings fallback;
    fallback.palette = FanDisplayOptions::Bronze;
    fallback.clearColour = QColor(1, 2, 3);
    fallback.scale = { 2.0f, 3.0f, 1.0f };
    fallback.rotation = 45.0f;

    QTemporaryDir folder;
    QSettings settings(folder.filePath("bad.ini"), QSettings::IniFormat);
    settings.setValue("palette", 12);
    settings.setValue("clearColour", "not a colour");
    settings.setValue("scale", QVariantList { 1.0, 2.0 });
    settings.setValue("rotation", "sideways");
    const auto read = DisplaySettingsStore::read(settings, fallback);
    QCOMPARE(read.palette, FanDisplayOptions::Bronze);
    QCOMPARE(read.clearColour, QColor(1, 2, 3));
    QCOMPARE(read.scale.x, 2.0f);
    QCOMPARE(read.rotation, 45.0f);
}

void TestViewer::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("palette");
    QTest::addColumn<int>("beams");
    QTest::addColumn<bool>("savedSettings");
    QTest::newRow("nothing") << QStringList { "viewer" } << true << -1 << 0 << true;
    QTest::newRow("screenshot starts fresh")
        << QStringList { "viewer", "--screenshot", "a.png", "--palette", "6", "--beams", "512" } << true << 6
        << 512 << false;
    QTest::newRow("no settings") << QStringList { "viewer", "--no-settings" } << true << -1 << 0 << false;
    QTest::newRow("palette 8") << QStringList { "viewer", "--palette", "8" } << false << -1 << 0 << true;
    QTest::newRow("300 beams") << QStringList { "viewer", "--beams", "300" } << false << -1 << 0 << true;
    QTest::newRow("tiny window") << QStringList { "viewer", "--size", "100x100" } << false << -1 << 0 << true;
    QTest::newRow("clamp above half")
        << QStringList { "viewer", "--clamp", "0.7" } << false << -1 << 0 << true;
    QTest::newRow("unknown option") << QStringList { "viewer", "--bogus" } << false << -1 << 0 << true;
    QTest::newRow("stray argument") << QStringList { "viewer", "stray" } << false << -1 << 0 << true;
}

void TestViewer::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, valid);
    const ViewerOptions options = ViewerOptions::parse(arguments);
    QCOMPARE(options.error.isEmpty(), valid);
    if (!valid)
        return;
    QTEST(options.palette, "palette");
    QTEST(options.beamCount, "beams");
    QTEST(options.useSavedSettings, "savedSettings");
}

void TestViewer::lookSurvivesRestart()
{
    QSettings().clear();
    {
        MainWindow window(ViewerOptions {});
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        TestSupport::keepGlDriverLoaded();
        // Frames travel from the sonar thread to the display and are counted.
        QTRY_VERIFY_WITH_TIMEOUT(child<QLabel>(window, "frameRateLabel")->text().contains("frames/s"), 10000);

        child<QComboBox>(window, "paletteBox")->setCurrentIndex(FanDisplayOptions::Fire);
        child<QSlider>(window, "modifierSlider")->setValue(200);
        child<QCheckBox>(window, "mirrorBox")->setChecked(true);
        child<QSpinBox>(window, "rotationBox")->setValue(90);
        child<QSpinBox>(window, "despeckleBox")->setValue(3);
        child<QComboBox>(window, "distanceUnitBox")->setCurrentIndex(1);
        window.close();
    }

    MainWindow window(ViewerOptions {});
    auto* display = window.findChild<ZoomableFanDisplay*>();
    QVERIFY(display);
    const auto look = display->getCurrentDisplaySettings();
    QCOMPARE(look.palette, FanDisplayOptions::Fire);
    QCOMPARE(int(look.paletteModifier), 200);
    QCOMPARE(look.horizontalFlip, true);
    QCOMPARE(look.rotation, 90.0f);
    QVERIFY(child<QSlider>(window, "modifierSlider")->isEnabled());
    QCOMPARE(child<QSlider>(window, "modifierSlider")->value(), 200);
    QCOMPARE(child<QCheckBox>(window, "mirrorBox")->isChecked(), true);
    QCOMPARE(child<QSpinBox>(window, "despeckleBox")->value(), 3);
    QCOMPARE(child<QComboBox>(window, "distanceUnitBox")->currentIndex(), 1);
}

void TestViewer::statusBarShowsPositionInChosenUnit()
{
    QSettings().clear();
    ViewerOptions options;
    options.feet = true;
    options.useSavedSettings = false;
    MainWindow window(options);
    auto* display = window.findChild<ZoomableFanDisplay*>();
    emit display->newMousePosition(3.048, -1.524, 3.048, -12.34);
    const QString text = child<QLabel>(window, "positionLabel")->text();
    QVERIFY2(
        text.contains("10.00 ft") && text.contains("-5.00 ft") && text.contains("-12.3"), qPrintable(text));
}

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    TestViewer test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_viewer.moc"
