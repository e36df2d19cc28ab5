#include "DisplaySettingsStore.h"
#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#include "FanOverlayContext.h"
#include "FishCountPanel.h"
#include "LinearUnit.h"
#include "MagnifierRuler.h"
#include "MainWindow.h"
#include "RecordingPanel.h"
#include "SimulatedSonar.h"
#include "SonarScene.h"
#include "SourceStatus.h"
#include "ViewerOptions.h"
#include "ZoomDisplay.h"
#include "sources/ArisWriter.h"
#include "sources/RecordingReader.h"
#include "sources/RecordingWriter.h"
#include "sources/SyntheticPassage.h"
#include "views/EchogramColumns.h"
#include "views/EchogramDisplay.h"
#include "views/FanAnnotations.h"
#include "views/MeasurementLog.h"

#include "GlTestSupport.h"
#include "SettingsText.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QDockWidget>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QSignalSpy>
#include <QSlider>
#include <QOpenGLWidget>
#include <QSpinBox>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtMath>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::NereonImage;
using namespace Halcyra::Nereon::Sources;
using TestSupport::describeSettings;

Q_DECLARE_METATYPE(const LinearUnit*)
Q_DECLARE_METATYPE(SourceStatus::Source)

namespace {

/// Share of a picture in the palette's colours: echoes, where the grid, labels and background are grey
/// and an empty fan is black.
double echoShare(const QImage& picture)
{
    int coloured = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const QColor c = picture.pixelColor(x, y);
            const int top = std::max({ c.red(), c.green(), c.blue() });
            coloured += top > 150 && top - std::min({ c.red(), c.green(), c.blue() }) > 60;
        }
    return double(coloured) / (picture.width() * picture.height());
}

/// A short ARIS recording of fish passing, written with the frame sources' synthetic passage.
bool writePassage(const QString& path, int frames, int fish)
{
    SyntheticPassageOptions options;
    options.beams = 48;
    options.samples = 400;
    options.frames = frames;
    options.fish = fish;
    options.faintFraction = options.crossingFraction = options.briefFraction = 0.0;
    options.minimumFishSpeed = 1.0;
    SyntheticPassage passage(options);
    ArisWriter writer;
    if (!writer.open(path, passage.getWriterOptions()))
        return false;
    SourceFrame frame;
    while (passage.nextFrame(frame))
        if (!writer.write(frame))
            return false;
    return writer.close();
}

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

} // namespace

class TestViewer : public QObject
{
    Q_OBJECT

private slots:
    void frameLayoutAndSpeckle()
    {
        const SonarConfiguration configuration { 512, 90.0, 2.5, 100 };
        SonarScene scene(configuration);
        const NereonImage image = scene.renderFrame(2.0);
        QCOMPARE(int(image.getWidth()), 512);
        QCOMPARE(int(image.getHeight()), 100);
        QCOMPARE(image.getData().size(), std::size_t(512 * 100));
        QCOMPARE(image.getRange(), 2.5);
        const auto& bearings = image.getBearings(); // hundredths of a degree, strictly rising
        QCOMPARE(int(bearings.size()), 512);
        QCOMPARE(int(bearings.front()), -4500);
        QCOMPARE(int(bearings.back()), 4500);
        QVERIFY(
            std::adjacent_find(bearings.begin(), bearings.end(), std::greater_equal<>()) == bearings.end());

        // The same scene at the same moment differs sample by sample, but not in overall brightness.
        const NereonImage again = scene.renderFrame(2.0);
        int differing = 0;
        double sum = 0.0, sumAgain = 0.0;
        for (std::size_t i = 0; i < image.getData().size(); ++i) {
            differing += image.getData()[i] != again.getData()[i];
            sum += image.getData()[i];
            sumAgain += again.getData()[i];
        }
        QVERIFY(differing > int(image.getData().size() / 2));
        QVERIFY(std::abs(sum - sumAgain) < 0.02 * sum);
    }

    void targetsEchoAndCastShadows()
    {
        const SonarConfiguration configuration;
        const NereonImage image = SonarScene(configuration).renderFrame(0.0);
        std::vector<SonarScene::Target> targets = SonarScene::getFixedTargets();
        targets.push_back(SonarScene::getMovingTarget(0.0));
        for (const SonarScene::Target& target : targets) {
            const double distance = std::hypot(target.x, target.y);
            const double bearing = std::atan2(target.x, target.y);
            const double halfWidth = std::asin(target.radius / distance);
            // Just behind the object for seabed targets, further out for the one in mid-water.
            const double shadowFrom = distance + target.radius + (&target == &targets.back() ? 0.14 : 0.01);
            const double shadowTo = shadowFrom + 0.4 * target.shadowLength * distance;
            const auto mean = [&](bool beside, double from, double to) {
                return meanWhere(image, configuration, [&](double b, double r) {
                    const double off = std::abs(b - bearing);
                    return r > from && r < to
                        && (beside ? off > 2.5 * halfWidth && off < 4.0 * halfWidth : off < 0.5 * halfWidth);
                });
            };
            const double echoFrom = distance - 0.5 * target.radius, echoTo = distance + 0.5 * target.radius;
            const double echo = mean(false, echoFrom, echoTo), echoBeside = mean(true, echoFrom, echoTo);
            const double shadow = mean(false, shadowFrom, shadowTo);
            const double shadowBeside = mean(true, shadowFrom, shadowTo);
            const QString where
                = QString::asprintf("target at (%g, %g): echo %g beside %g, shadow %g beside %g", target.x,
                    target.y, echo, echoBeside, shadow, shadowBeside);
            QVERIFY2(echo > 1.5 * echoBeside, qPrintable(where));
            QVERIFY2(shadow < 0.5 * shadowBeside, qPrintable(where));
        }
    }

    void sonarSendsFramesAcrossThreads()
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

        // Taken frames keep coming, in the new layout once the configuration changes.
        acknowledge = true;
        for (int i = 0; i < 4; ++i)
            sonar->frameDelivered();
        configuration.beamCount = 512;
        QMetaObject::invokeMethod(sonar, [sonar, configuration] { sonar->setConfiguration(configuration); });
        QTRY_VERIFY(frames.back().getWidth() == 512);
        QCOMPARE(int(frames.front().getWidth()), 256);
        QVERIFY(onGuiThread);

        QMetaObject::invokeMethod(sonar, &SimulatedSonar::stop);
        QTRY_COMPARE(disconnections, 1);
        thread.quit();
        QVERIFY(thread.wait(5000));
    }

    void recordingPanelRecordsAndReplays()
    {
        QTemporaryDir folder;
        const QString recorded = folder.filePath("recorded.nrec");
        SonarScene scene(SonarConfiguration {});
        std::vector<NereonImage> sent;
        RecordingPanel panel;
        QSignalSpy recordingChanged(&panel, &RecordingPanel::recordingChanged);
        QVERIFY(panel.startRecording(recorded));
        for (int i = 0; i < 5; ++i) {
            sent.push_back(scene.renderFrame(i / 15.0));
            panel.record(sent.back());
            QThread::msleep(5); // so that the slider has somewhere to go
        }
        panel.stopRecording();
        QCOMPARE(recordingChanged.count(), 2);
        QVERIFY(!panel.isRecording());
        QVERIFY(!panel.startRecording(folder.filePath("missing/recorded.nrec")));

        // Replayed through the panel: every frame, in order, then the end.
        std::vector<NereonImage> replayed;
        connect(&panel, &RecordingPanel::frameReplayed, &panel,
            [&replayed](const NereonImage& image) { replayed.push_back(image); });
        QSignalSpy started(&panel, &RecordingPanel::replayStarted);
        QSignalSpy stopped(&panel, &RecordingPanel::replayStopped);
        QSignalSpy live(&panel, &RecordingPanel::liveRequested);
        panel.openRecording(recorded, 16.0);
        QCOMPARE(started.count(), 1);
        QVERIFY(panel.isReplaying());
        QTRY_COMPARE(stopped.count(), 1);
        QCOMPARE(stopped.front().front().toLongLong(), qint64(-1));
        QCOMPARE(replayed.size(), sent.size());
        for (std::size_t i = 0; i < sent.size(); ++i)
            QVERIFY(replayed[i].getData() == sent[i].getData());

        // The slider seeks: back to the start shows the first frame again.
        auto* slider = panel.findChild<QSlider*>("positionSlider");
        QVERIFY(slider && slider->isEnabled());
        replayed.clear();
        slider->setValue(0);
        QTRY_COMPARE(replayed.size(), std::size_t(1));
        QVERIFY(replayed.front().getData() == sent.front().getData());

        // Frame by frame: the box counts from 1, Back goes to the frame before the one shown.
        QCOMPARE(panel.getDescription().beamCount, int(sent.front().getWidth()));
        QCOMPARE(panel.getDescription().format, QString("Nereon recording"));
        auto* frameBox = panel.findChild<QSpinBox*>("frameBox");
        QCOMPARE(frameBox->value(), 1);
        QCOMPARE(frameBox->maximum(), int(sent.size()));
        replayed.clear();
        frameBox->setValue(4);
        QTRY_COMPARE(replayed.size(), std::size_t(1));
        QVERIFY(replayed.back().getData() == sent[3].getData());
        panel.findChild<QPushButton*>("backButton")->click();
        QTRY_COMPARE(replayed.size(), std::size_t(2));
        QVERIFY(replayed.back().getData() == sent[2].getData());
        QTRY_COMPARE(frameBox->value(), 3);

        panel.returnToLive();
        QCOMPARE(live.count(), 1);
        QVERIFY(!panel.isReplaying());
        QVERIFY(!slider->isEnabled());
    }

    void magnifierRulerMeasuresInTrueMetres()
    {
        FanDisplay display;
        ZoomDisplay* magnifier = display.getZoomDisplay();
        QWidget window;
        window.resize(300, 200);
        magnifier->setParent(&window);
        magnifier->setGeometry(0, 0, 300, 200);
        MagnifierRuler ruler(magnifier);
        QVERIFY(TestSupport::showExposed(window));
        QCOMPARE(ruler.size(), magnifier->size());
        magnifier->zoomIn();
        magnifier->zoomIn();
        magnifier->pan(-0.5f, -2.0f, true);
        ruler.setRange(20.0);

        // Drag across the view: the fan points under the pixels follow from the view's scale
        // and translation alone (clip = scale * fan + translation at rotation 0).
        const auto scale = magnifier->getCurrentScale();
        const auto shift = magnifier->getCurrentTranslation();
        auto fanAt = [&](QPoint pixel) {
            const double clipX = 2.0 * (pixel.x() + 0.5) / 300.0 - 1.0;
            const double clipY = 1.0 - 2.0 * (pixel.y() + 0.5) / 200.0;
            return QPointF((clipX - shift.x) / scale.x, (clipY - shift.y) / scale.y);
        };
        const QPoint from(40, 150);
        const QPoint to(250, 30);
        QTest::mousePress(&ruler, Qt::LeftButton, {}, from);
        QTest::mouseMove(&ruler, to);
        QTest::mouseRelease(&ruler, Qt::LeftButton, {}, to);
        QVERIFY(ruler.hasMeasurement());
        const QPointF d = fanAt(to) - fanAt(from);
        const double expected = std::hypot(d.x(), d.y()) * 20.0;
        // Within a pixel's worth of the magnified fan.
        QVERIFY2(std::abs(ruler.getDistance() - expected) < 20.0 / (300.0 * scale.x),
            qPrintable(QString("%1 m, expected %2 m").arg(ruler.getDistance()).arg(expected)));
        ruler.setDistanceUnit(&LinearUnit::feet());
        QCOMPARE(ruler.getLabel(), QString("%1 ft").arg(expected / 0.3048, 0, 'f', 2));

        // The line stays on the same fan points when the view moves: its pixels move, its length not.
        const double length = ruler.getDistance();
        const QPointF before = ruler.pixelOf(fanAt(to));
        magnifier->zoomIn();
        QVERIFY((ruler.pixelOf(fanAt(to)) - before).manhattanLength() > 1.0);
        QCOMPARE(ruler.getDistance(), length);

        // A right click clears; a click without a drag measures nothing.
        QTest::mouseClick(&ruler, Qt::RightButton, {}, from);
        QVERIFY(!ruler.hasMeasurement());
        QTest::mouseClick(&ruler, Qt::LeftButton, {}, from);
        QVERIFY(!ruler.hasMeasurement());
        magnifier->setParent(nullptr);
    }

    void unitConversion_data()
    {
        QTest::addColumn<const LinearUnit*>("unit");
        QTest::addColumn<double>("base");
        QTest::addColumn<double>("converted");
        QTest::addColumn<QString>("symbol");
        QTest::newRow("metres") << &LinearUnit::metres() << 2.5 << 2.5 << "m";
        QTest::newRow("feet") << &LinearUnit::feet() << 100.0 << 328.0839895 << "ft";
        QTest::newRow("square feet") << &LinearUnit::squareFeet() << 1.0 << 10.7639104 << "ft\u00b2";
    }

    void unitConversion()
    {
        QFETCH(const LinearUnit*, unit);
        QFETCH(double, base);
        QFETCH(double, converted);
        QVERIFY(std::abs(unit->convertFromBase(base) - converted) < 1e-6);
        QVERIFY(std::abs(unit->convertToBase(converted) - base) < 1e-6);
        QTEST(QString::fromStdString(unit->getSymbol()), "symbol");
        QCOMPARE(unit->isBaseUnit(), base == converted);
    }

    void settingsSavedAndRestored()
    {
        const FanDisplayOptions::DisplaySettings look { FanDisplayOptions::Aqua, 77, true, QColor(10, 20, 30),
            QColor(200, 100, 50, 128), true, false, true, { 1.5f, 0.25f, 1.0f }, { 0.125f, -0.5f, 0.0f },
            270.0f };
        QTemporaryDir folder;
        const QString path = folder.filePath("viewer.ini");
        DisplaySettingsStore::write(*std::make_unique<QSettings>(path, QSettings::IniFormat), look);
        QSettings settings(path, QSettings::IniFormat);
        QCOMPARE(describeSettings(DisplaySettingsStore::read(settings, {})), describeSettings(look));

        // Unusable values keep the fallback's.
        settings.setValue("palette", 12);
        settings.setValue("clearColour", "not a colour");
        settings.setValue("scale", QVariantList { 1.0, 2.0 });
        settings.setValue("rotation", "sideways");
        QCOMPARE(describeSettings(DisplaySettingsStore::read(settings, look)), describeSettings(look));
    }

    void sourceStatus_data()
    {
        using Source = SourceStatus::Source;
        QTest::addColumn<Source>("source");
        QTest::addColumn<bool>("paused");
        QTest::addColumn<QString>("stopped");
        QTest::addColumn<int>("frames");
        QTest::addColumn<double>("interval"); // milliseconds between frames
        QTest::addColumn<int>("quiet"); // milliseconds since the last frame
        QTest::addColumn<QString>("link");
        QTest::addColumn<bool>("receiving");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("serial");
        QTest::addColumn<int>("dropped");
        QTest::addColumn<QString>("text");
        const QString none;
        QTest::newRow("simulated") << Source::Simulated << false << none << 20 << 66.7 << 10 << none << false
                                   << none << none << 0 << "Simulated sonar \u00b7 15 frames/s";
        QTest::newRow("replay paused on one frame")
            << Source::Replay << true << none << 1 << 0.0 << 5000 << none << false << none << none << 0
            << "Replay \u00b7 paused";
        QTest::newRow("replay whose frames stopped coming")
            << Source::Replay << false << none << 10 << 100.0 << 2000 << none << false << none << none << 0
            << "Replay \u00b7 waiting for frames";
        QTest::newRow("replay slower than a frame a second")
            << Source::Replay << false << none << 3 << 5000.0 << 100 << none << false << none << none << 0
            << "Replay \u00b7 0.2 frames/s";
        QTest::newRow("replay at its end")
            << Source::Replay << true << "at the end" << 5 << 100.0 << 10 << none << false << none << none
            << 0 << "Replay \u00b7 at the end";
        QTest::newRow("live") << Source::Live << false << none << 20 << 153.85 << 10
                              << "Receiving from 127.0.0.1" << true << "ARIS 1200"
                              << "1098" << 0
                              << "ARIS 1200, serial 1098 \u00b7 Receiving from 127.0.0.1 \u00b7 6.5 frames/s";
        QTest::newRow("live link lost")
            << Source::Live << false << none << 20 << 100.0 << 2500 << "Link lost (no frames); trying again"
            << false << "ARIS 3000" << none << 3
            << "ARIS 3000 \u00b7 Link lost (no frames); trying again \u00b7 3 frames dropped";
        QTest::newRow("live, an address for a serial number")
            << Source::Live << false << none << 0 << 0.0 << 0 << "Connected to 10.0.0.5; waiting for frames"
            << false << "ARIS"
            << "10.0.0.5" << 1
            << "ARIS \u00b7 Connected to 10.0.0.5; waiting for frames \u00b7 1 frame dropped";
    }

    void sourceStatus()
    {
        QFETCH(SourceStatus::Source, source);
        QFETCH(int, frames);
        QFETCH(double, interval);
        QFETCH(int, quiet);
        QFETCH(QString, link);
        QFETCH(bool, receiving);
        QFETCH(QString, model);
        QFETCH(QString, serial);
        QFETCH(int, dropped);
        QFETCH(QString, stopped);
        QFETCH(bool, paused);

        SourceStatus status;
        status.setSource(source);
        const qint64 start = 1000000;
        qint64 now = start;
        for (int i = 0; i < frames; ++i) {
            now = start + qint64(std::lround(i * interval));
            status.frameShown(now);
        }
        status.setPaused(paused);
        status.setStopped(stopped);
        status.setLink(link, receiving);
        status.setSonar(model, serial);
        status.setDroppedFrames(dropped);
        QTEST(status.getText(now + quiet), "text");
    }

    void windowFitsLaptopScreen()
    {
        // Sized for the screen it opens on, as at a first start.
        ViewerOptions options;
        options.useSavedSettings = false;
        MainWindow window(options);
        QVERIFY(TestSupport::showExposed(window));
        // The fan's context exists once it has painted; pin the driver only then.
        QTRY_VERIFY(window.findChild<QOpenGLWidget*>()->isValid());
        TestSupport::keepGlDriverLoaded();
        const QRect available = window.screen()->availableGeometry();
        QVERIFY(available.contains(window.frameGeometry()));
        // With a task bar and a window manager's title bar, the smallest window still fits.
        QVERIFY2(window.minimumSizeHint().height() <= available.height() - 80,
            qPrintable(QString("at least %1 pixels high").arg(window.minimumSizeHint().height())));

        const auto squeezed = [](const QWidget* widget) {
            const QSize least = widget->minimumSizeHint().expandedTo(widget->minimumSize());
            return widget->width() < least.width() || widget->height() < least.height();
        };
        QVERIFY(!squeezed(window.centralWidget()));
        int docksShown = 0;
        for (QDockWidget* dock : window.findChildren<QDockWidget*>()) {
            if (dock->visibleRegion().isEmpty())
                continue; // a tab behind another
            ++docksShown;
            QVERIFY2(!squeezed(dock) && !squeezed(dock->widget()), qPrintable(dock->windowTitle()));
        }
        QCOMPARE(docksShown, 3); // magnifier, recording, and the display's controls in front of the sonar's
    }

    void windowFollowsItsSource()
    {
        ViewerOptions options;
        options.useSavedSettings = false;
        MainWindow window(options);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* sourceLabel = window.findChild<QLabel*>("sourceLabel");
        auto* timeLabel = window.findChild<QLabel*>("timeLabel");
        auto* sonarDock = window.findChild<QDockWidget*>("sonarDock");
        auto* panel = window.findChild<RecordingPanel*>();
        QTRY_COMPARE(sourceLabel->text().left(18), QString("Simulated sonar \u00b7 "));
        QVERIFY(!sonarDock->isHidden());
        QVERIFY(timeLabel->text().isEmpty()); // the simulated sonar's frames have no time

        // The magnifier says how much it magnifies, and stops at its last step.
        auto* zoomIn = window.findChild<QPushButton*>("magnifierZoomIn");
        auto* factor = window.findChild<QLabel*>("magnifierZoomLabel");
        QCOMPARE(factor->text(), QString("\u00d74"));
        zoomIn->click();
        QCOMPARE(factor->text(), QString("\u00d74.5"));
        for (int i = 0; i < 10; ++i)
            zoomIn->click();
        QCOMPARE(factor->text(), QString("\u00d710"));

        // A shorter magnifier still shows the same spot in its middle.
        ZoomDisplay* magnifier = static_cast<FanDisplay*>(window.centralWidget())->getZoomDisplay();
        magnifier->pan(0.3f, -4.0f, true);
        const auto spot = [magnifier] { return magnifier->getCurrentProjection().inverted().map(QPointF()); };
        const QPointF before = spot();
        const int height = magnifier->height();
        window.resize(window.width(), window.height() - 60);
        QTRY_VERIFY(magnifier->height() < height);
        QVERIFY(QLineF(spot(), before).length() < 1e-4);

        // A replay opened at a frame: paused, with that frame's recorded time; no sonar controls.
        QTemporaryDir folder;
        const QString path = folder.filePath("timed.nrec");
        {
            RecordingWriter writer;
            QVERIFY(writer.open(path, 1714566896000)); // 2024-05-01 12:34:56 UTC
            SonarScene scene(SonarConfiguration {});
            for (int i = 0; i < 3; ++i)
                QVERIFY(writer.write(scene.renderFrame(i / 15.0), i * 250000));
        }
        panel->openRecording(path, 1.0, 1);
        QTRY_COMPARE(timeLabel->text(), QString("2024-05-01 12:34:56.250 UTC"));
        QCOMPARE(sourceLabel->text(), QString("Replay \u00b7 paused"));
        QVERIFY(sonarDock->isHidden());

        panel->returnToLive();
        QVERIFY(!sonarDock->isHidden());
        QVERIFY(timeLabel->text().isEmpty());
        QTRY_COMPARE(sourceLabel->text().left(18), QString("Simulated sonar \u00b7 "));
    }

    void switchesTakeEffect()
    {
        QTemporaryDir folder;
        const QString csv = folder.filePath("measurements.csv");
        const ViewerOptions options
            = ViewerOptions::parse({ "viewer", "--screenshot", folder.filePath("x.png"), "--echogram",
                "--moving-targets", "--measurements", csv, "--count-fish", "--fish" });
        QVERIFY(options.error.isEmpty());
        {
            MainWindow window(options);
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            QVERIFY(window.findChild<QDockWidget*>("echogramDock")->isVisible());
            QVERIFY(window.findChild<QCheckBox*>("simulatedFishBox")->isChecked());
            QVERIFY(window.findChild<FishCountPanel*>()->isCounting());
            auto* fan = static_cast<FanDisplay*>(window.centralWidget());

            // The scene barely moves: with only what moves shown, the fan goes dark; without, it lights up
            // again.
            auto* filter = window.findChild<QCheckBox*>("movingTargetsBox");
            QVERIFY(filter->isChecked());
            auto* echogram = window.findChild<Halcyra::Nereon::Views::EchogramDisplay*>();
            QTRY_VERIFY(echogram->getColumns().size() > 8); // past the frames in which the model settles
            const double filtered = echoShare(fan->grabFramebuffer());
            filter->setChecked(false);
            QTRY_VERIFY2(echoShare(fan->grabFramebuffer()) > 5 * filtered + 0.01,
                qPrintable(QString::number(filtered)));

            // A distance dragged across the fan lands in the table.
            auto* log = window.findChild<Halcyra::Nereon::Views::MeasurementLog*>();
            auto* table = window.findChild<QTableView*>("measurementTable");
            QCOMPARE(table->model(), log);
            // Far out, clear of the magnifier's outline, which a drag would move instead.
            const auto where = FanDisplayExtensions::contextFor(fan);
            const QPoint from = where->toPixels(0.8 * where->getRange(), -20.0).toPoint();
            const QPoint to = where->toPixels(0.85 * where->getRange(), 15.0).toPoint();
            QTest::mousePress(fan, Qt::LeftButton, {}, from);
            QMouseEvent move(QEvent::MouseMove, to, fan->mapToGlobal(to), Qt::NoButton, Qt::LeftButton, {});
            QCoreApplication::sendEvent(fan, &move);
            QTest::mouseRelease(fan, Qt::LeftButton, {}, to);
            QTRY_COMPARE(log->rowCount(), 1);
            QVERIFY(log->getEntries().front().frame >= 0);
            QCOMPARE(
                log->data(log->index(0, Halcyra::Nereon::Views::MeasurementLog::WidgetColumn)).toString(),
                QString("display"));
        }
        // Written when the viewer ends: the header and the measurement.
        QFile file(csv);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().count('\n'), 2);
    }

    void countsFishInARecording()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("passage.aris");
        QVERIFY(writePassage(path, 200, 3));
        ViewerOptions options;
        options.useSavedSettings = false;
        options.countFish = true;
        options.echogram = true;
        options.replayPath = path;
        options.replaySpeed = 4.0;
        MainWindow window(options);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* panel = window.findChild<FishCountPanel*>();
        QTRY_VERIFY_WITH_TIMEOUT(panel->getMarks().getCount() > 0, 20000);
        // Counted by the end of the recording, and written out as one row a fish.
        QTRY_VERIFY_WITH_TIMEOUT(panel->getUpstream() + panel->getDownstream() > 0, 30000);
        QVERIFY(panel->exportCsv(folder.path()));
        QFile fish(folder.filePath("fish.csv"));
        QVERIFY(fish.open(QIODevice::ReadOnly));
        QCOMPARE(int(fish.readAll().count('\n')), 1 + int(panel->getFish().size()));
        QVERIFY(QFile(folder.filePath("tracks.csv")).size() > 0);
        // Each counted fish is on the echogram, in the counting colour the grey picture has nowhere else.
        auto* echogram = window.findChild<Halcyra::Nereon::Views::EchogramDisplay*>();
        QTRY_VERIFY(echogram->getMarkCount() >= int(panel->getFish().size()));
        const QImage picture = echogram->grabFramebuffer();
        int marked = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                marked += picture.pixel(x, y) == qRgb(255, 220, 0);
        QVERIFY(marked > 0);
    }

    void echogramAndLogGoToTheirFrame()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("passage.aris");
        QVERIFY(writePassage(path, 60, 1));
        ViewerOptions options;
        options.useSavedSettings = false;
        options.echogram = true;
        options.replayPath = path;
        options.replayFrame = 0;
        MainWindow window(options);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* panel = window.findChild<RecordingPanel*>();
        auto* echogram = window.findChild<Halcyra::Nereon::Views::EchogramDisplay*>();
        QTRY_VERIFY(!echogram->isLoading() && echogram->getColumns().size() == 60);

        // A click on the echogram shows the frame under it, and the cursor follows.
        QTest::mouseClick(
            echogram, Qt::LeftButton, {}, QPoint(echogram->columnToPixel(40), echogram->height() / 2));
        QTRY_COMPARE(panel->getShownFrame(), 40);
        QTRY_COMPARE(echogram->getCursorFrame(), 40);

        // The log numbers frames as the player does, from 1; a double click goes back to the frame.
        auto* log = window.findChild<Halcyra::Nereon::Views::MeasurementLog*>();
        Halcyra::Nereon::Views::MeasurementLog::Entry entry;
        entry.frame = 13;
        log->append(entry);
        auto* table = window.findChild<QTableView*>("measurementTable");
        window.findChild<QDockWidget*>("measurementsDock")->raise();
        QTRY_VERIFY(table->isVisible());
        const QPoint at = table->visualRect(log->index(0, 0)).center();
        // QtTest's double click alone lacks the first click a user makes.
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, at);
        QTRY_COMPARE(panel->getShownFrame(), 12);
    }

    void offLeavesThePictureAsItWas()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("passage.aris");
        QVERIFY(writePassage(path, 40, 2));
        ViewerOptions options;
        options.useSavedSettings = false;
        options.replayPath = path;
        options.replayFrame = 20;
        MainWindow window(options);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* fan = static_cast<FanDisplay*>(window.centralWidget());
        auto* panel = window.findChild<RecordingPanel*>();
        QTRY_COMPARE(panel->getShownFrame(), 20);
        QTest::qWait(200);
        const QImage before = fan->grabFramebuffer();

        // The filter and the count, on and off again while paused: the same frame, the same picture.
        auto* filter = window.findChild<QCheckBox*>("movingTargetsBox");
        auto* count = window.findChild<QCheckBox*>("countFishBox");
        filter->setChecked(true);
        count->setChecked(true);
        QTRY_VERIFY(echoShare(fan->grabFramebuffer()) < echoShare(before) / 5);
        filter->setChecked(false);
        count->setChecked(false);
        QTRY_VERIFY(echoShare(fan->grabFramebuffer()) > echoShare(before) / 2);
        // Automatic thresholds follow the frames, so allow a slight shift of colour.
        const QImage after = fan->grabFramebuffer();
        int changed = 0;
        for (int y = 0; y < after.height(); ++y)
            for (int x = 0; x < after.width(); ++x) {
                const QRgb a = after.pixel(x, y);
                const QRgb b = before.pixel(x, y);
                changed += std::max({ std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                               std::abs(qBlue(a) - qBlue(b)) })
                    > 12;
            }
        if (changed > after.width() * after.height() / 200) {
            after.save(QDir::temp().filePath("viewer-after-toggling.png"));
            QFAIL(qPrintable(QString("%1 pixels changed: see viewer-after-toggling.png").arg(changed)));
        }
    }

    void commandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("palette");
        QTest::addColumn<int>("beams");
        QTest::addColumn<bool>("savedSettings");
        QTest::newRow("nothing") << QStringList { "viewer" } << true << -1 << 0 << true;
        QTest::newRow("screenshot starts fresh")
            << QStringList { "viewer", "--screenshot", "a.png", "--palette", "6", "--beams", "512" } << true
            << 6 << 512 << false;
        QTest::newRow("record and replay")
            << QStringList { "viewer", "--record", "a.nrec", "--replay", "b.nrec", "--speed", "0.5" } << true
            << -1 << 0 << true;
        QTest::newRow("live sonar") << QStringList { "viewer", "--sonar", "127.0.0.1:56900" } << true << -1 << 0
                                    << true;
        QTest::newRow("file, frame, magnifier and measurement")
            << QStringList { "viewer", "fish.aris", "--frame", "3", "--magnify", "8", "--magnify-at", "0,0.5",
                   "--measure", "0,0.4,0.02,0.41" }
            << true << -1 << 0 << true;
        QTest::newRow("echogram, filter, measurements and counting") << QStringList { "viewer", "--echogram",
            "--moving-targets", "--measurements", "m.csv", "--count-fish", "--fish" }
                                                                     << true << -1 << 0 << true;
        QTest::newRow("magnifier at a range and bearing")
            << QStringList { "viewer", "--magnify-at", "16ft,-10deg" } << true << -1 << 0 << true;
        for (const QStringList& refused : { QStringList { "--palette", "8" }, { "--beams", "300" },
                 { "--size", "100x100" }, { "--bogus" }, { "--replay", "b.nrec", "--speed", "0" },
                 { "--replay", "" }, { "a.aris", "b.aris" }, { "a.aris", "--replay", "b.aris" },
                 { "--frame", "2" }, { "a.aris", "--frame", "0" }, { "--magnify", "11" },
                 { "--measure", "1,2" }, { "--magnify-at", "x,1" }, { "--magnify-at", "5,-3deg" },
                 { "--magnify-at", "5m,-300deg" }, { "--magnify-at", "-5m,3deg" },
                 { "--sonar", "1098", "--replay", "b.nrec" }, { "--sonar", " " }, { "--measurements", "" } })
            QTest::newRow(qPrintable(refused.join(' ')))
                << QStringList("viewer") + refused << false << -1 << 0 << true;
    }

    void commandLine()
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
        if (arguments.contains("fish.aris")) {
            QCOMPARE(options.replayPath, QString("fish.aris"));
            QCOMPARE(options.replayFrame, 2);
            QCOMPARE(options.magnifierSteps, 7); // 8x
            QCOMPARE(options.magnifierCentre, QPointF(0, 0.5));
            QCOMPARE(options.measurement, QLineF(0, 0.4, 0.02, 0.41));
        }
        if (arguments.contains("--count-fish")) {
            QVERIFY(options.echogram && options.movingTargets && options.countFish && options.simulatedFish);
            QCOMPARE(options.measurementsPath, QString("m.csv"));
        }
        if (options.magnifierAtRangeBearing) {
            QCOMPARE(options.magnifierAt.range, 16 * 0.3048);
            QCOMPARE(options.magnifierAt.bearing, -10.0);
            // Port of the centre line, half way out on a fan of twice the range.
            const QPointF point = ViewerOptions::fanPoint(options.magnifierAt, 2 * 16 * 0.3048);
            QVERIFY(point.x() < 0 && std::abs(std::hypot(point.x(), point.y()) - 0.5) < 1e-9);
        }
    }
};

QTEST_MAIN(TestViewer)

#include "tst_viewer.moc"
