#include "FishTracker.h"
#include "SyntheticSonar.h"
#include "analysis/BackgroundSubtractor.h"
#include "analysis/FishCounter.h"
#include "analysis/FishDetector.h"
#include "analysis/LiveBackgroundSubtractor.h"
#include "analysis/LiveFishCounter.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <opencv2/core.hpp>

#include <cmath>

using namespace Halcyra::Nereon;
using namespace Halcyra::Nereon::Analysis;
using Sources::SourceFrame;

namespace {

std::vector<NereonImage> sampleFrames(const SyntheticSonar& sonar, int first, int count, int step)
{
    std::vector<NereonImage> images;
    for (int i = 0; i < count; ++i)
        images.push_back(sonar.frame(first + i * step).image);
    return images;
}

int countLit(const NereonImage& image)
{
    return int(
        std::count_if(image.getData().begin(), image.getData().end(), [](std::uint8_t v) { return v != 0; }));
}

/// Foreground samples inside a box of the frame around a fish at (x, y) metres.
int countLitAround(const NereonImage& image, double x, double y, double radiusM)
{
    int lit = 0;
    const double rowM = image.getRange() / image.getHeight();
    for (int r = 0; r < image.getHeight(); ++r) {
        for (int b = 0; b < image.getWidth(); ++b) {
            const double range = (r + 0.5) * rowM, angle = image.getBearings()[b] / 100.0 * M_PI / 180.0;
            if (std::hypot(range * std::sin(angle) - x, range * std::cos(angle) - y) <= radiusM)
                lit += image.getData()[std::size_t(r) * image.getWidth() + b] != 0;
        }
    }
    return lit;
}

Detection detectionAt(double x, double y, double length)
{
    Detection d;
    d.xM = x;
    d.yM = y;
    d.rangeM = std::hypot(x, y);
    d.bearingDeg = std::atan2(x, y) * 180.0 / M_PI;
    d.lengthM = length;
    return d;
}

} // namespace

class TestAnalysis : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void stillSceneHasNoForeground_data();
    void stillSceneHasNoForeground();
    void movingFishSurvives_data();
    void movingFishSurvives();
    void modelStartsAgainOnNewLayout_data();
    void modelStartsAgainOnNewLayout();

    void detectionsInMetres_data();
    void detectionsInMetres();

    void malformedFramesAreSkipped();
    void crossingFishKeepIdentity();
    void confirmAndMissRules_data();
    void confirmAndMissRules();

    void directionRules_data();
    void directionRules();
    void liveFilterHandsOutFrames();
    void liveCounterOnItsOwnThread();
};

void TestAnalysis::initTestCase()
{
    cv::setNumThreads(1);
}

void TestAnalysis::stillSceneHasNoForeground_data()
{
    QTest::addColumn<bool>("learnt");
    QTest::newRow("learnt from samples") << true;
    QTest::newRow("learning as it goes") << false;
}

void TestAnalysis::stillSceneHasNoForeground()
{
    QFETCH(bool, learnt);
    SyntheticSonar sonar(128, 1000, 10.0);
    BackgroundSubtractor subtractor;
    subtractor.setFrameRate(10.0);
    subtractor.setAdaptationSeconds(10.0);
    int first = 0;
    if (learnt) {
        subtractor.learn(sampleFrames(sonar, 0, 30, 7));
        first = 300;
    }
    NereonImage foreground;
    for (int i = 0; i < 150; ++i) {
        QVERIFY(subtractor.apply(sonar.frame(first + i), foreground));
        // Once the model has settled, speckle alone is (almost) never foreground.
        if (learnt || i >= 100)
            QVERIFY2(
                countLit(foreground) < 128 * 1000 / 1000, qPrintable(QString::number(countLit(foreground))));
    }
}

void TestAnalysis::movingFishSurvives_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<bool>("learnt");
    QTest::newRow("passing") << 1.0 << false;
    QTest::newRow("lingering") << 0.02 << false;
    QTest::newRow("lingering, learnt") << 0.02 << true;
}

void TestAnalysis::movingFishSurvives()
{
    QFETCH(double, speed);
    QFETCH(bool, learnt);
    SyntheticSonar sonar(128, 1000, 10.0);
    SyntheticFish fish;
    fish.x = -0.8 - speed * 5.0; // at -0.8 m when it appears, at 5 s
    fish.y = 5.0;
    fish.vx = speed;
    fish.lengthM = 0.6;
    fish.firstFrame = 50;
    fish.lastFrame = 50 + int(1.6 / speed * 10.0);
    sonar.addFish(fish);

    BackgroundSubtractor subtractor;
    subtractor.setFrameRate(10.0);
    subtractor.setAdaptationSeconds(10.0);
    if (learnt)
        subtractor.learn(sampleFrames(sonar, 0, 30, 40)); // the fish covers a sample in a quarter of them
    NereonImage foreground;
    int seenFirst = 0;
    const int last = std::min(400, fish.lastFrame);
    for (int i = 0; i <= last; ++i) {
        QVERIFY(subtractor.apply(sonar.frame(i), foreground));
        if (i < 50)
            continue;
        const double t = i / 10.0;
        const int lit = countLitAround(foreground, fish.x + speed * t, fish.y, 0.35);
        if (i == 50)
            seenFirst = lit;
        QVERIFY(seenFirst > 20);
        // The fish must not burn into the background while it stays.
        QVERIFY2(lit >= seenFirst / 2,
            qPrintable(QStringLiteral("frame %1: %2 of %3").arg(i).arg(lit).arg(seenFirst)));
    }
}

void TestAnalysis::modelStartsAgainOnNewLayout_data()
{
    QTest::addColumn<int>("beams");
    QTest::addColumn<int>("samples");
    QTest::addColumn<double>("range");
    QTest::addColumn<double>("fan");
    QTest::newRow("beams") << 96 << 1000 << 10.0 << 28.0;
    QTest::newRow("samples") << 128 << 800 << 10.0 << 28.0;
    QTest::newRow("range") << 128 << 1000 << 12.0 << 28.0;
    QTest::newRow("bearings") << 128 << 1000 << 10.0 << 20.0;
}

void TestAnalysis::modelStartsAgainOnNewLayout()
{
    QFETCH(int, beams);
    QFETCH(int, samples);
    QFETCH(double, range);
    QFETCH(double, fan);
    SyntheticSonar before(128, 1000, 10.0);
    SyntheticSonar after(beams, samples, range, fan, 2);
    BackgroundSubtractor subtractor;
    subtractor.learn(sampleFrames(before, 0, 20, 3));

    NereonImage foreground = before.frame(0).image;
    // A malformed frame is refused and the model kept.
    const NereonImage learnt = subtractor.getBackground();
    const NereonImage bad(
        128, 1000, std::vector<std::uint8_t>(1000), std::vector<std::int16_t>(128), 10.0, 1.0);
    QVERIFY(!subtractor.apply(bad, foreground));
    QCOMPARE(foreground.getWidth(), 0);
    QCOMPARE(subtractor.getBackground().getData(), learnt.getData());

    // The new layout's first frame starts a new model: nothing stands out against it.
    const SourceFrame first = after.frame(0);
    QVERIFY(subtractor.apply(first.image, foreground));
    QCOMPARE(countLit(foreground), 0);
    QCOMPARE(subtractor.getBackground().getWidth(), beams);
    QCOMPARE(subtractor.getBackground().getHeight(), samples);
    QCOMPARE(subtractor.getBackground().getRange(), range);
    QCOMPARE(subtractor.getBackground().getData(), first.image.getData());
}

namespace {

/// The detections of frame `index` of `sonar`, against a background learnt before any fish came.
std::vector<Detection> detectAt(const SyntheticSonar& sonar, int index)
{
    BackgroundSubtractor subtractor;
    subtractor.learn(sampleFrames(sonar, 0, 20, 5));
    NereonImage foreground;
    subtractor.apply(sonar.frame(index).image, foreground);
    FishDetector detector;
    return detector.detect(foreground);
}

} // namespace

void TestAnalysis::detectionsInMetres_data()
{
    QTest::addColumn<double>("rangeM");
    QTest::addColumn<double>("heading"); // degrees from the x axis
    QTest::addColumn<double>("length");
    QTest::addColumn<double>("gapM"); // the echo in two pieces
    QTest::addColumn<double>("neighbourM"); // a second fish this far out, 0 for none
    // A beam is about 1 cm wide at 2.5 m and 7 cm at 17 m.
    QTest::newRow("near, across the beams") << 2.5 << 0.0 << 0.4 << 0.0 << 0.0;
    QTest::newRow("near, along the beams") << 2.5 << 90.0 << 0.4 << 0.0 << 0.0;
    QTest::newRow("far, across the beams") << 17.0 << 0.0 << 0.4 << 0.0 << 0.0;
    QTest::newRow("far, across the beams, large") << 17.0 << 0.0 << 1.0 << 0.0 << 0.0;
    QTest::newRow("far, oblique") << 17.0 << 45.0 << 0.7 << 0.0 << 0.0;
    QTest::newRow("gap across the beams") << 6.0 << 0.0 << 0.6 << 0.08 << 0.0;
    QTest::newRow("gap along the beams") << 6.0 << 90.0 << 0.6 << 0.08 << 0.0;
    QTest::newRow("oblique gap") << 6.0 << 40.0 << 0.6 << 0.1 << 0.0;
    QTest::newRow("longer gap along its axis") << 6.0 << 0.0 << 0.6 << 0.22 << 0.0;
    QTest::newRow("two fish side by side") << 6.0 << 0.0 << 0.6 << 0.0 << 0.45;
}

void TestAnalysis::detectionsInMetres()
{
    QFETCH(double, rangeM);
    QFETCH(double, heading);
    QFETCH(double, length);
    QFETCH(double, gapM);
    QFETCH(double, neighbourM);
    SyntheticSonar sonar(128, 2000, 20.0);
    SyntheticFish fish;
    fish.x = 0.1 * rangeM;
    fish.y = rangeM;
    fish.vx = std::cos(heading * M_PI / 180.0) * 1e-6;
    fish.vy = std::sin(heading * M_PI / 180.0) * 1e-6;
    fish.lengthM = length;
    fish.gapM = gapM;
    fish.firstFrame = 100;
    sonar.addFish(fish);
    if (neighbourM > 0.0) {
        fish.y += neighbourM;
        sonar.addFish(fish);
    }
    const auto detections = detectAt(sonar, 100);
    QCOMPARE(int(detections.size()), neighbourM > 0.0 ? 2 : 1);
    for (const auto& d : detections)
        QVERIFY2(std::abs(d.lengthM - length) < 0.08, qPrintable(QString::number(d.lengthM)));
    QVERIFY(std::abs(detections[0].rangeM - std::hypot(0.1 * rangeM, rangeM)) < 0.05);
    QVERIFY(std::abs(detections[0].bearingDeg - std::atan2(0.1, 1.0) * 180.0 / M_PI) < 0.5);
}

void TestAnalysis::malformedFramesAreSkipped()
{
    const std::vector<std::int16_t> bearings(4, 0);
    const std::vector<std::uint8_t> data(4 * 10, 200);
    const double nan = std::nan("");
    const NereonImage bad[] = {
        NereonImage(),
        NereonImage(4, 10, std::vector<std::uint8_t>(39), bearings, 5.0, 1.0),
        NereonImage(4, 10, data, std::vector<std::int16_t>(3), 5.0, 1.0),
        NereonImage(4, 10, data, bearings, nan, 1.0),
        NereonImage(4, 10, data, bearings, 0.0, 1.0),
    };
    FishCounter counter;
    FishDetector detector;
    int index = 0;
    for (const NereonImage& image : bad) {
        QVERIFY(detector.detect(image).empty());
        SourceFrame frame;
        frame.image = image;
        frame.index = index++;
        counter.addFrame(frame);
    }
    QCOMPARE(counter.getFramesRejected(), 5);
    QCOMPARE(counter.getFramesProcessed(), 0);

    // Odd but well-formed frames are taken: padding past the end, one beam, one row,
    // no times, frame numbers going back.
    const NereonImage odd[] = {
        NereonImage(4, 10, data, bearings, 5.0, 1.0),
        NereonImage(1, 10, std::vector<std::uint8_t>(10, 90), { 0 }, 5.0, 1.0),
        NereonImage(4, 1, std::vector<std::uint8_t>(4, 90), bearings, 5.0, 1.0),
    };
    for (const NereonImage& image : odd) {
        SourceFrame frame;
        frame.image = image;
        frame.firstSampleRow = 50;
        frame.index = --index;
        for (int i = 0; i < 20; ++i)
            counter.addFrame(frame);
    }
    counter.finish();
    QCOMPARE(counter.getFramesProcessed(), 60);
}

void TestAnalysis::crossingFishKeepIdentity()
{
    // Two fish of different sizes cross; where they overlap they are one echo.
    FishTracker tracker(CountOptions {});
    for (int frame = 0; frame < 30; ++frame) {
        const double t = frame / 10.0;
        const double ax = -1.4 + 1.0 * t, bx = 1.4 - 1.0 * t, y = 4.6 + 0.3 * t;
        std::vector<Detection> detections;
        if (std::abs(ax - bx) < 0.5)
            detections.push_back(detectionAt(0.5 * (ax + bx), y, 0.9));
        else
            detections = { detectionAt(ax, y, 0.4), detectionAt(bx, y, 0.8) };
        tracker.update(frame, frame * 100'000LL, 0.1, detections);
    }
    tracker.finish();
    QCOMPARE(int(tracker.getFish().size()), 2);
    for (const FishRecord& fish : tracker.getFish()) {
        QVERIFY(fish.direction == (fish.lengthM < 0.6 ? Direction::Up : Direction::Down));
        QCOMPARE(fish.firstFrame, 0);
        QCOMPARE(fish.lastFrame, 29);
        // Every point of a fish's track lies on its own path.
        for (const TrackPoint& p : tracker.getTrackPoints()) {
            if (p.fishId != fish.id)
                continue;
            const double t = p.frame / 10.0;
            const double x = p.rangeM * std::sin(p.bearingDeg * M_PI / 180.0);
            const double expected = fish.direction == Direction::Up ? -1.4 + t : 1.4 - t;
            QVERIFY2(std::abs(x - expected) < 0.3,
                qPrintable(QStringLiteral("fish %1 frame %2").arg(fish.id).arg(p.frame)));
        }
    }
    QVERIFY(tracker.getFish()[0].id != tracker.getFish()[1].id);
}

void TestAnalysis::confirmAndMissRules_data()
{
    QTest::addColumn<int>("firstEnd"); // last frame of the first sighting
    QTest::addColumn<int>("secondStart"); // first frame of the second sighting, -1 for none
    QTest::addColumn<double>("jumpM"); // the second sighting this far off the first's path
    QTest::addColumn<double>("length");
    QTest::addColumn<int>("expectedFish");
    QTest::addColumn<int>("expectedDetections");
    QTest::newRow("seen once too few") << 1 << -1 << 0.0 << 0.5 << 0 << 0;
    QTest::newRow("seen just enough") << 2 << -1 << 0.0 << 0.5 << 1 << 3;
    QTest::newRow("too short") << 20 << -1 << 0.0 << 0.2 << 0 << 0;
    QTest::newRow("missed for less than the limit") << 9 << 14 << 0.0 << 0.5 << 1 << 20;
    QTest::newRow("broken track joined") << 9 << 18 << 0.0 << 0.5 << 1 << 20;
    QTest::newRow("too long apart") << 9 << 41 << 0.0 << 0.5 << 2 << 10;
    QTest::newRow("elsewhere") << 9 << 16 << 2.0 << 0.5 << 2 << 10;
}

void TestAnalysis::confirmAndMissRules()
{
    QFETCH(int, firstEnd);
    QFETCH(int, secondStart);
    QFETCH(double, jumpM);
    QFETCH(double, length);
    QFETCH(int, expectedFish);
    QFETCH(int, expectedDetections);
    CountOptions options;
    options.minTravelM = 0.0;
    FishTracker tracker(options);
    for (int frame = 0; frame < 60; ++frame) {
        const bool seen
            = frame <= firstEnd || (secondStart >= 0 && frame >= secondStart && frame < secondStart + 10);
        std::vector<Detection> detections;
        if (seen)
            detections.push_back(
                detectionAt(-1.5 + 0.1 * frame, 5.0 + (frame > firstEnd ? jumpM : 0.0), length));
        tracker.update(frame, frame * 100'000LL, 0.1, detections);
    }
    tracker.finish();
    QCOMPARE(int(tracker.getFish().size()), expectedFish);
    if (expectedFish > 0)
        QCOMPARE(tracker.getFish().front().detections, expectedDetections);
    // One track point for every frame from the first detection to the last, seen or not.
    if (expectedFish == 1) {
        const FishRecord& fish = tracker.getFish().front();
        QCOMPARE(int(tracker.getTrackPoints().size()), fish.lastFrame - fish.firstFrame + 1);
    }
}

void TestAnalysis::directionRules_data()
{
    QTest::addColumn<int>("upstream");
    QTest::addColumn<double>("countLine"); // NaN for none
    QTest::addColumn<double>("toX"); // the fish swims from x = -0.9 m to here
    QTest::addColumn<int>("expectedUp");
    QTest::addColumn<int>("expectedDown");
    const double none = std::nan("");
    QTest::newRow("river up to the right") << 0 << none << 0.9 << 1 << 0;
    QTest::newRow("river up to the left") << 1 << none << 0.9 << 0 << 1;
    QTest::newRow("count line crossed") << 0 << 0.0 << 0.9 << 1 << 0;
    QTest::newRow("count line crossed, river up to the left") << 1 << 0.0 << 0.9 << 0 << 1;
    QTest::newRow("count line not reached") << 0 << 8.0 << 0.5 << 0 << 0;
}

void TestAnalysis::directionRules()
{
    QFETCH(int, upstream);
    QFETCH(double, countLine);
    QFETCH(double, toX);
    QFETCH(int, expectedUp);
    QFETCH(int, expectedDown);
    CountOptions options;
    options.upstream = upstream == 0 ? CountOptions::Upstream::TowardsPositiveBearing
                                     : CountOptions::Upstream::TowardsNegativeBearing;
    if (!std::isnan(countLine))
        options.countLineBearingDeg = countLine;
    FishTracker tracker(options);
    for (int frame = 0; frame < 20; ++frame)
        tracker.update(
            frame, frame * 100'000LL, 0.1, { detectionAt(-0.9 + (toX + 0.9) * frame / 19.0, 5.0, 0.5) });
    tracker.finish();
    QCOMPARE(tracker.getUpstreamCount(), expectedUp);
    QCOMPARE(tracker.getDownstreamCount(), expectedDown);
    if (expectedUp + expectedDown > 0)
        QVERIFY(std::abs(tracker.getFish().front().speedMS - (toX + 0.9) / 1.9) < 0.05);
}

void TestAnalysis::liveFilterHandsOutFrames()
{
    SyntheticSonar sonar(64, 500, 8.0);
    SyntheticFish fish;
    fish.y = 4.0;
    fish.firstFrame = 20;
    sonar.addFish(fish);
    LiveBackgroundSubtractor filter;
    BackgroundSubtractor reference;
    QSignalSpy frames(&filter, &LiveBackgroundSubtractor::frameReady);
    QSignalSpy images(&filter, &LiveBackgroundSubtractor::imageReady);
    NereonImage expected;
    for (int i = 0; i < 30; ++i) {
        filter.addFrame(sonar.frame(i));
        reference.apply(sonar.frame(i), expected);
    }
    filter.addFrame(SourceFrame()); // malformed: dropped
    QCOMPARE(frames.count(), 30);
    QCOMPARE(images.count(), 30);
    const auto last = frames.last().first().value<SourceFrame>();
    QCOMPARE(last.index, 29);
    QCOMPARE(last.timestamp, sonar.frame(29).timestamp);
    QCOMPARE(last.image.getData(), expected.getData());
    QVERIFY(countLit(last.image) > 0);
}

void TestAnalysis::liveCounterOnItsOwnThread()
{
    SyntheticSonar sonar(64, 500, 8.0);
    SyntheticFish fish;
    fish.x = -1.5;
    fish.y = 4.0;
    fish.vx = 1.0;
    fish.lengthM = 0.6;
    fish.firstFrame = 20;
    sonar.addFish(fish);

    QThread thread;
    // Stops the thread however the test ends.
    const std::unique_ptr<QThread, void (*)(QThread*)> stopper(&thread, [](QThread* t) {
        t->quit();
        t->wait();
    });
    auto* counter = new LiveFishCounter(CountOptions {});
    counter->moveToThread(&thread);
    connect(&thread, &QThread::finished, counter, &QObject::deleteLater);
    thread.start();

    std::vector<FishRecord> counted;
    int up = -1, foregrounds = 0;
    std::size_t mostTracks = 0;
    QThread* countingThread = nullptr;
    connect(counter, &LiveFishCounter::fishCounted, this, [&](const FishRecord& f) { counted.push_back(f); });
    connect(counter, &LiveFishCounter::countsChanged, this, [&](int u, int) { up = u; });
    connect(counter, &LiveFishCounter::foregroundReady, this, [&](const SourceFrame&) { ++foregrounds; });
    connect(counter, &LiveFishCounter::tracksUpdated, this, [&](const std::vector<LiveTrack>& tracks) {
        mostTracks = std::max<std::size_t>(mostTracks,
            std::count_if(tracks.begin(), tracks.end(), [](const LiveTrack& t) { return t.confirmed; }));
    });
    connect(
        counter, &LiveFishCounter::tracksUpdated, counter,
        [&](const std::vector<LiveTrack>&) { countingThread = QThread::currentThread(); },
        Qt::DirectConnection);

    for (int i = 0; i < 80; ++i)
        QMetaObject::invokeMethod(counter, "addFrame", Qt::QueuedConnection,
            Q_ARG(Halcyra::Nereon::Sources::SourceFrame, sonar.frame(i)));
    QMetaObject::invokeMethod(counter, "finish", Qt::QueuedConnection);
    QTRY_COMPARE(foregrounds, 80);
    QTRY_COMPARE(up, 1);
    QCOMPARE(int(counted.size()), 1);
    QCOMPARE(countingThread, &thread);
    QCOMPARE(mostTracks, std::size_t(1));
}

QTEST_GUILESS_MAIN(TestAnalysis)
#include "tst_analysis.moc"
