// Marks drawn on the fan and its magnifier, the log of finished measurements, and the
// display's opt-ins (true edges, no grid before a frame, room for the range labels).

#include "FanDisplay.h"
#include "FanDisplayExtensions.h"
#include "FanView.h"
#include "GlTestSupport.h"
#include "TestFrames.h"
#include "TestUnits.h"
#include "ZoomDisplay.h"
#include "ZoomableFanDisplay.h"
#include "views/FanAnnotations.h"
#include "views/MeasurementLog.h"

#include <QApplication>
#include <QMouseEvent>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <limits>
#include <memory>

using namespace Halcyra::Nereon::Visualisation;
using Halcyra::Nereon::Views::FanAnnotations;
using Halcyra::Nereon::Views::MeasurementLog;
using Mark = FanAnnotations::Mark;
using TestSupport::fanToPixels;
using TestSupport::OpenGLWidget;

Q_DECLARE_METATYPE(FanDisplayOptions::MeasurementMode)

namespace {

constexpr double frameRange = 20.0;
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
const QColor magenta(255, 0, 255);

/// A fan point (units of the range) for range metres on a bearing as the fan shows it.
QPointF fanPoint(double range, double bearing, bool mirrored = false)
{
    const double shown = qDegreesToRadians(mirrored ? -bearing : bearing);
    return QPointF(range / frameRange * std::sin(shown), range / frameRange * std::cos(shown));
}

/// Pixels near the point that are clearly magenta.
int magentaAround(const QImage& image, QPointF at, int half = 7)
{
    int count = 0;
    for (int y = int(at.y()) - half; y <= int(at.y()) + half; ++y) {
        for (int x = int(at.x()) - half; x <= int(at.x()) + half; ++x) {
            if (!image.rect().contains(x, y))
                continue;
            const QColor c = image.pixelColor(x, y);
            count += c.red() > 180 && c.blue() > 180 && c.green() < 100;
        }
    }
    return count;
}

void sendMouse(QWidget& widget, QEvent::Type type, QPoint at)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, QPointF(at), QPointF(widget.mapToGlobal(at)), button, held, Qt::NoModifier);
    QCoreApplication::sendEvent(&widget, &event);
}

struct Shown
{
    std::unique_ptr<FanDisplay> display;
    ZoomDisplay* zoom = nullptr;

    explicit Shown(bool zoomable = false, QSize size = QSize(400, 300))
        : display(zoomable ? std::make_unique<ZoomableFanDisplay>() : std::make_unique<FanDisplay>())
    {
        display->resize(size);
        display->setPalette(FanDisplayOptions::Greyscale);
    }
    ~Shown()
    {
        // The application owns a placed magnifier; this one is only shown on its own.
        delete zoom;
    }
    bool show(bool withMagnifier = false)
    {
        if (withMagnifier) {
            zoom = display->getZoomDisplay();
            zoom->resize(200, 200);
            if (!TestSupport::showExposed(*zoom))
                return false;
        }
        if (!TestSupport::showExposed(*display))
            return false;
        display->newImageReceived(TestSupport::uniformFrame(64, 100, frameRange, 60));
        display->grabFramebuffer();
        return true;
    }
};

} // namespace

class TestAnnotations : public QObject
{
    Q_OBJECT

private slots:
    void marksLandOnTheFan_data()
    {
        QTest::addColumn<int>("rotation");
        QTest::addColumn<bool>("mirrored");
        QTest::addColumn<float>("zoom");
        QTest::addColumn<bool>("magnifier");
        QTest::newRow("upright") << 0 << false << 1.0f << false;
        QTest::newRow("90") << 90 << false << 1.0f << false;
        QTest::newRow("180") << 180 << false << 1.0f << false;
        QTest::newRow("270") << 270 << false << 1.0f << false;
        QTest::newRow("mirrored") << 0 << true << 1.0f << false;
        QTest::newRow("mirrored 90") << 90 << true << 1.0f << false;
        QTest::newRow("zoomed 2x") << 0 << false << 2.0f << false;
        QTest::newRow("magnifier") << 0 << false << 1.0f << true;
        QTest::newRow("magnifier mirrored 90") << 90 << true << 1.0f << true;
    }

    void marksLandOnTheFan()
    {
        QFETCH(int, rotation);
        QFETCH(bool, mirrored);
        QFETCH(float, zoom);
        QFETCH(bool, magnifier);

        Shown shown(zoom != 1.0f);
        shown.display->setRotation(rotation);
        if (mirrored)
            shown.display->horizontalFlip();
        if (zoom != 1.0f)
            static_cast<ZoomableFanDisplay*>(shown.display.get())->setZoomLevel(zoom, false);
        QVERIFY(shown.show(magnifier));

        // Near the apex for the magnifier's default view, half way out for the display.
        const double range = magnifier ? 5.0 : 10.0;
        const double bearing = magnifier ? 8.0 : 25.0;
        FanAnnotations marks;
        marks.attach(shown.display.get());
        marks.add(Mark::point(range, bearing, magenta));

        OpenGLWidget& widget = magnifier ? static_cast<OpenGLWidget&>(*shown.zoom) : *shown.display;
        shown.display->grabFramebuffer();
        const QImage image = widget.grabFramebuffer();
        const QTransform toPixels = fanToPixels(widget, QSizeF(image.size()));
        const QPointF right = toPixels.map(fanPoint(range, bearing, mirrored));
        const QPointF wrong = toPixels.map(fanPoint(range, bearing, !mirrored));
        if (magentaAround(image, right) < 8 || magentaAround(image, wrong) != 0)
            QFAIL(qPrintable(QStringLiteral("mark not at (%1, %2): %3")
                                 .arg(right.x())
                                 .arg(right.y())
                                 .arg(TestSupport::saveFailurePicture(image, QStringLiteral("marks")))));
    }

    // What an application attaches must not change a pixel until it has something to show.
    void pictureUnchangedWithoutMarks_data()
    {
        QTest::addColumn<bool>("unplaceable");
        QTest::newRow("empty annotations and a log") << false;
        QTest::newRow("NaN and infinite marks") << true;
    }

    void pictureUnchangedWithoutMarks()
    {
        QFETCH(bool, unplaceable);
        Shown shown;
        QVERIFY(shown.show(true));
        shown.display->setRotation(30);
        const QImage before = shown.display->grabFramebuffer();
        const QImage zoomBefore = shown.zoom->grabFramebuffer();

        FanAnnotations marks;
        marks.attach(shown.display.get());
        MeasurementLog log;
        log.attach(shown.display.get());
        if (unplaceable) {
            const double inf = std::numeric_limits<double>::infinity();
            marks.add(Mark::point(notANumber, 3.0, magenta, QStringLiteral("nan")));
            marks.add(Mark::box(2.0, inf, -5.0, 5.0, magenta));
            marks.add(Mark::ellipse(5.0, 0.0, notANumber, 1.0, magenta));
            marks.add(Mark::polyline({ QPointF(1.0, 0.0), QPointF(notANumber, notANumber) }, magenta));
            marks.add(Mark::countLine(inf, magenta));
        }
        QCOMPARE(shown.display->grabFramebuffer(), before);
        QCOMPARE(shown.zoom->grabFramebuffer(), zoomBefore);
        QCOMPARE(marks.markAt(QPointF(200, 150)), 0);
    }

    void hitTest_data()
    {
        QTest::addColumn<QPointF>("fan"); // where to ask, fan units
        QTest::addColumn<QPointF>("offset"); // and how far beside it, pixels
        QTest::addColumn<QString>("expected");
        QTest::newRow("on a point") << fanPoint(10.0, 0.0) << QPointF(5, 0) << "point";
        QTest::newRow("inside a box") << fanPoint(6.0, -20.0) << QPointF() << "box";
        QTest::newRow("beside a polyline") << fanPoint(14.0, 30.0) << QPointF(0, 3) << "trail";
        QTest::newRow("a point over a box") << fanPoint(7.0, -15.0) << QPointF() << "point in box";
        QTest::newRow("on a count line") << fanPoint(18.0, -50.0) << QPointF(2, 0) << "gate";
        QTest::newRow("nothing there") << fanPoint(16.0, 0.0) << QPointF() << "";
        QTest::newRow("too far from the point") << fanPoint(10.0, 0.0) << QPointF(12, 0) << "";
    }

    void hitTest()
    {
        QFETCH(QPointF, fan);
        QFETCH(QPointF, offset);
        QFETCH(QString, expected);
        Shown shown;
        QVERIFY(shown.show());
        FanAnnotations marks;
        marks.attach(shown.display.get());
        marks.add(Mark::point(notANumber, 0.0, magenta, QStringLiteral("nowhere")));
        marks.add(Mark::box(4.0, 8.0, -30.0, -10.0, magenta, QStringLiteral("box")));
        marks.add(Mark::point(10.0, 0.0, magenta, QStringLiteral("point")));
        marks.add(
            Mark::polyline({ QPointF(12.0, 20.0), QPointF(16.0, 40.0) }, magenta, QStringLiteral("trail")));
        marks.add(Mark::point(7.0, -15.0, magenta, QStringLiteral("point in box")));
        marks.add(Mark::countLine(-50.0, magenta, QStringLiteral("gate")));
        shown.display->grabFramebuffer();

        const int id = marks.markAt(fanToPixels(*shown.display).map(fan) + offset);
        QCOMPARE(id == 0 ? QString() : marks.find(id)->label, expected);
    }

    void marksFollowChanges()
    {
        Shown shown;
        QVERIFY(shown.show());
        FanAnnotations marks;
        marks.attach(shown.display.get());
        const int id = marks.add(Mark::point(10.0, 0.0, magenta));
        const QTransform toPixels = fanToPixels(*shown.display);
        QVERIFY(magentaAround(shown.display->grabFramebuffer(), toPixels.map(fanPoint(10.0, 0.0))) >= 8);

        QVERIFY(marks.update(id, Mark::point(10.0, 30.0, magenta)));
        QImage image = shown.display->grabFramebuffer();
        QCOMPARE(magentaAround(image, toPixels.map(fanPoint(10.0, 0.0))), 0);
        QVERIFY(magentaAround(image, toPixels.map(fanPoint(10.0, 30.0))) >= 8);

        QVERIFY(marks.remove(id));
        QVERIFY(!marks.remove(id));
        QCOMPARE(magentaAround(shown.display->grabFramebuffer(), toPixels.map(fanPoint(10.0, 30.0))), 0);

        // Destroyed while attached: the display forgets it.
        auto transient = std::make_unique<FanAnnotations>();
        transient->attach(shown.display.get());
        transient->add(Mark::point(10.0, 0.0, magenta));
        transient.reset();
        QCOMPARE(magentaAround(shown.display->grabFramebuffer(), toPixels.map(fanPoint(10.0, 0.0))), 0);
    }

    void logsFinishedMeasurements_data()
    {
        QTest::addColumn<FanDisplayOptions::MeasurementMode>("mode");
        QTest::addColumn<bool>("magnifier");
        QTest::addColumn<bool>("mirrored");
        QTest::addColumn<int>("rotation");
        QTest::newRow("distance") << FanDisplayOptions::StraightLine << false << false << 0;
        QTest::newRow("distance, mirrored") << FanDisplayOptions::StraightLine << false << true << 0;
        QTest::newRow("rectangle, turned") << FanDisplayOptions::RectangleArea << false << false << 90;
        QTest::newRow("circle") << FanDisplayOptions::CircleAreaFromCentre << false << false << 0;
        QTest::newRow("distance on the magnifier") << FanDisplayOptions::StraightLine << true << false << 0;
        QTest::newRow("rectangle on the magnifier") << FanDisplayOptions::RectangleArea << true << true << 0;
    }

    void logsFinishedMeasurements()
    {
        QFETCH(FanDisplayOptions::MeasurementMode, mode);
        QFETCH(bool, magnifier);
        QFETCH(bool, mirrored);
        QFETCH(int, rotation);

        Shown shown;
        shown.display->setRotation(rotation);
        if (mirrored)
            shown.display->horizontalFlip();
        shown.display->setMeasurementMode(mode);
        QVERIFY(shown.show(magnifier));
        FanDisplayExtensions::setMagnifierMeasuring(shown.display.get(), magnifier);
        MeasurementLog log;
        log.attach(shown.display.get());
        log.setCurrentFrame(42, 1700000000123456);

        OpenGLWidget& widget = magnifier ? static_cast<OpenGLWidget&>(*shown.zoom) : *shown.display;
        const QTransform toPixels = fanToPixels(widget);
        const QPoint from = toPixels.map(fanPoint(magnifier ? 3.0 : 8.0, -10.0, mirrored)).toPoint();
        const QPoint to = toPixels.map(fanPoint(magnifier ? 5.0 : 14.0, 15.0, mirrored)).toPoint();
        sendMouse(widget, QEvent::MouseButtonPress, from);
        sendMouse(widget, QEvent::MouseMove, (from + to) / 2);
        sendMouse(widget, QEvent::MouseMove, to);
        sendMouse(widget, QEvent::MouseButtonRelease, to);
        // A click without a drag measures nothing.
        sendMouse(widget, QEvent::MouseButtonPress, to);
        sendMouse(widget, QEvent::MouseButtonRelease, to);

        QCOMPARE(log.rowCount(), 1);
        const MeasurementLog::Entry& entry = log.getEntries().front();
        QCOMPARE(entry.frame, 42);
        QCOMPARE(entry.timeMicroseconds, Q_INT64_C(1700000000123456));
        const FanMeasurement& m = entry.measurement;
        QCOMPARE(m.mode, mode);
        QCOMPARE(m.onMagnifier, magnifier);

        // The points as sent, back in metres through the widget's own view.
        const QTransform toFan = toPixels.inverted();
        const QPointF a = toFan.map(QPointF(from)) * frameRange;
        const QPointF b = toFan.map(QPointF(to)) * frameRange;
        const double sign = mirrored ? -1.0 : 1.0;
        QVERIFY(std::abs(m.startRange - std::hypot(a.x(), a.y())) < 1e-3);
        QVERIFY(std::abs(m.startBearing - sign * qRadiansToDegrees(std::atan2(a.x(), a.y()))) < 1e-3);
        QVERIFY(std::abs(m.endAcross - sign * b.x()) < 1e-3);
        QVERIFY(std::abs(m.endAlong - b.y()) < 1e-3);

        // The tools measure on screen, whatever the rotation.
        const QPointF screen = QPointF(to - from) / toPixels.map(QLineF(0, 0, 0, 1)).length() * frameRange;
        double expected = std::hypot(screen.x(), screen.y());
        if (mode == FanDisplayOptions::RectangleArea)
            expected = std::abs(screen.x() * screen.y());
        else if (mode == FanDisplayOptions::CircleAreaFromCentre)
            expected = M_PI * expected * expected;
        QVERIFY2(std::abs(m.value - expected) < 1e-3 * expected,
            qPrintable(QStringLiteral("%1, expected %2").arg(m.value).arg(expected)));
    }

    void csvRoundTrip()
    {
        MeasurementLog log;
        MeasurementLog::Entry first;
        first.frame = 3;
        first.timeMicroseconds = -1500001; // before 1970: the fraction stays positive
        first.timeKnown = true;
        first.measurement.mode = FanDisplayOptions::CircleAreaFromCentre;
        first.measurement.onMagnifier = true;
        first.measurement.startRange = 4.25;
        first.measurement.startBearing = -12.5;
        first.measurement.endAcross = 1.0625;
        first.measurement.value = 3.141593;
        MeasurementLog::Entry unknownFrame;
        unknownFrame.measurement.value = 2.5;
        log.append(first);
        log.append(unknownFrame);
        log.append(unknownFrame);
        QVERIFY(log.removeRows(2, 1));

        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("log.csv"));
        QString error;
        QVERIFY2(log.exportCsv(path, &error), qPrintable(error));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = file.readAll().split('\n');
        QCOMPARE(lines.size(), 4); // header, two rows, the last line's end
        QVERIFY(lines[1].startsWith("3,1969-12-31T23:59:58.499999Z,magnifier,circle,4.2500,-12.5000,"));

        MeasurementLog read;
        QVERIFY2(read.importCsv(path, &error), qPrintable(error));
        QCOMPARE(read.rowCount(), 2);
        const MeasurementLog::Entry& back = read.getEntries()[0];
        QCOMPARE(back.frame, 3);
        QCOMPARE(back.timeMicroseconds, first.timeMicroseconds);
        QCOMPARE(back.measurement.mode, first.measurement.mode);
        QCOMPARE(back.measurement.onMagnifier, true);
        QCOMPARE(back.measurement.startBearing, -12.5);
        QCOMPARE(back.measurement.endAcross, 1.0625);
        QCOMPARE(back.measurement.value, 3.141593);
        QCOMPARE(read.getEntries()[1].frame, -1);
        QVERIFY(!read.getEntries()[1].timeKnown);
    }

    void csvFailures_data()
    {
        QTest::addColumn<QByteArray>("content"); // written to in.csv first; empty: nothing written
        QTest::addColumn<QString>("exportTo"); // relative to a fresh folder; empty: import in.csv
        QTest::addColumn<QString>("message");
        QTest::newRow("export into a missing folder") << QByteArray() << "missing/log.csv"
                                                      << "";
        QTest::newRow("export below a file") << QByteArray("x") << "in.csv/log.csv"
                                             << "";
        const QByteArray header
            = "frame,time_utc,widget,tool,start_range_m,start_bearing_deg,end_range_m,"
              "end_bearing_deg,start_across_m,start_along_m,end_across_m,end_along_m,value,unit\n";
        const QByteArray row = "1,,display,distance,1,2,3,4,5,6,7,8,9,m\n";
        QTest::newRow("not a log") << QByteArray("a,b\n") << ""
                                   << "byte offset 0:";
        QTest::newRow("bad number")
            << header + row + "2,,display,distance,1,x,3,4,5,6,7,8,9,m\n"
            << "" << QStringLiteral("byte offset %1: bad number").arg(header.size() + row.size());
        QTest::newRow("short row") << header + "1,,display\n"
                                   << "" << QStringLiteral("byte offset %1:").arg(header.size());
        QTest::newRow("area in metres") << header + "1,,display,circle,1,2,3,4,5,6,7,8,9,m\n"
                                        << ""
                                        << "unit";
    }

    void csvFailures()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, exportTo);
        QFETCH(QString, message);
        QTemporaryDir folder;
        if (!content.isEmpty()) {
            QFile in(folder.filePath(QStringLiteral("in.csv")));
            QVERIFY(in.open(QIODevice::WriteOnly));
            in.write(content);
        }
        MeasurementLog log;
        log.append(MeasurementLog::Entry());
        QString error;
        if (!exportTo.isEmpty()) {
            QVERIFY(!log.exportCsv(folder.filePath(exportTo), &error));
            QVERIFY(error.startsWith(folder.filePath(exportTo)));
            // Nothing left behind, not even the temporary file.
            const QStringList left = QDir(folder.path()).entryList(QDir::Files | QDir::NoDotAndDotDot);
            QCOMPARE(left, content.isEmpty() ? QStringList() : QStringList { QStringLiteral("in.csv") });
            return;
        }
        QVERIFY(!log.importCsv(folder.filePath(QStringLiteral("in.csv")), &error));
        QVERIFY2(error.contains(message), qPrintable(error));
        QCOMPARE(log.rowCount(), 1); // a damaged file changes nothing
    }

    void optIns_data()
    {
        QTest::addColumn<QString>("option");
        QTest::newRow("true edges") << "true edges";
        QTest::newRow("grid awaits frame") << "grid awaits frame";
        QTest::newRow("label margin") << "label margin";
    }

    // Each opt-in changes what it should when on, and nothing when off again.
    void optIns()
    {
        QFETCH(QString, option);
        FanDisplay display;
        const TestSupport::ScaledUnit metres = TestSupport::metres();
        display.setDistanceUnit(&metres);
        display.setTextColour(QColor(0, 255, 0));
        display.resize(option == QLatin1String("grid awaits frame") ? QSize(400, 260) : QSize(300, 400));
        // Turned, the widest fan's outer labels run off the top and bottom.
        if (option == QLatin1String("label margin"))
            display.setRotation(90);
        QVERIFY(TestSupport::showExposed(display));
        if (option == QLatin1String("true edges")) {
            // Before a frame there are no true edges: the empty grid stays as it was.
            const QImage empty = display.grabFramebuffer();
            FanDisplayExtensions::setTrueEdges(&display, true);
            QCOMPARE(display.grabFramebuffer(), empty);
            FanDisplayExtensions::setTrueEdges(&display, false);
        }
        if (option != QLatin1String("grid awaits frame")) {
            // A narrow fan for the edges; the widest for labels at the widget's sides.
            const int half = option == QLatin1String("true edges") ? 735 : 6500;
            display.newImageReceived(TestSupport::uniformFrame(64, 100, frameRange, 200, -half, half));
        }
        const QImage before = display.grabFramebuffer();
        const auto set = [&](bool on) {
            if (option == QLatin1String("true edges"))
                FanDisplayExtensions::setTrueEdges(&display, on);
            else if (option == QLatin1String("grid awaits frame"))
                FanDisplayExtensions::setGridAwaitsFrame(&display, on);
            else
                FanDisplayExtensions::setLabelMargin(&display, on);
        };
        set(true);
        const QImage on = display.grabFramebuffer();
        set(false);
        QCOMPARE(display.grabFramebuffer(), before);

        const QColor background(76, 76, 76);
        if (option == QLatin1String("grid awaits frame")) {
            QVERIFY(TestSupport::countPixelsDiffering(before, before.rect(), background, 8) > 0);
            QCOMPARE(TestSupport::countPixelsDiffering(on, on.rect(), background, 8), 0);
        } else if (option == QLatin1String("label margin")) {
            // Green label text reaches the widget's border off, stays inside on.
            const auto textAtSides = [](const QImage& image) {
                int count = 0;
                for (int y = 0; y < image.height(); ++y) {
                    for (int x = 0; x < image.width(); ++x) {
                        const bool border
                            = x < 2 || y < 2 || x >= image.width() - 2 || y >= image.height() - 2;
                        const QColor c = image.pixelColor(x, y);
                        count += border && c.green() > 120 && c.red() < 100;
                    }
                }
                return count;
            };
            QVERIFY(textAtSides(before) > 0);
            QCOMPARE(textAtSides(on), 0);
        } else {
            // Along a row near the rim: the data centred, and no grid line beside it.
            const QPoint inside = fanToPixels(display, QSizeF(on.size())).map(QPointF(0.03, 0.9)).toPoint();
            const auto measure = [&inside](const QImage& image, double& centre, int& gridBeside) {
                const QColor fan = image.pixelColor(inside);
                int first = -1;
                int last = -1;
                for (int x = 0; x < image.width(); ++x) {
                    if (TestSupport::pixelMatches(image, QPoint(x, inside.y()), fan, 30)) {
                        first = first < 0 ? x : first;
                        last = x;
                    }
                }
                centre = (first + last + 1) / 2.0;
                gridBeside = 0;
                for (int step = 1; step <= 4; ++step) {
                    for (const int x : { first - step, last + step })
                        gridBeside += TestSupport::pixelMatches(
                            image, QPoint(x, inside.y()), QColor(128, 128, 128), 30);
                }
            };
            double centre = 0.0;
            int gridBeside = 0;
            measure(before, centre, gridBeside);
            QVERIFY(gridBeside > 0);
            measure(on, centre, gridBeside);
            QCOMPARE(gridBeside, 0);
            QVERIFY2(std::abs(centre - on.width() / 2.0) <= 1.0, qPrintable(QString::number(centre)));
        }
    }
};

int main(int argc, char** argv)
{
    // The magnifier draws with the fan display's GL objects.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestAnnotations test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_annotations.moc"
