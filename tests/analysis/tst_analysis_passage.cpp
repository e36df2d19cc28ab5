#include "analysis/FishCounter.h"
#include "sources/ArisWriter.h"
#include "sources/FrameReader.h"
#include "sources/SyntheticPassage.h"

#include <QTemporaryDir>
#include <QTest>

#include <opencv2/core.hpp>

using namespace Halcyra::Nereon;
using namespace Halcyra::Nereon::Analysis;

namespace {

/// A count against a passage's truth. Brief fish (glimpsed in mid-fan or cut by the
/// recording's ends) may be counted or not.
struct Score
{
    int truthFish = 0; // fish that cross the fan
    int found = 0; // of those, counted at least once
    int split = 0; // of those, counted more than once
    int rightDirection = 0; // of those found, counted the right way
    int counted = 0; // counts, brief fish not included
    int falseFish = 0; // counts matching no fish
    std::vector<double> lengthErrors;

    void score(const Sources::SyntheticPassage& passage, const FishCounter& counter);
    double medianLengthError() const
    {
        std::vector<double> e = lengthErrors;
        std::nth_element(e.begin(), e.begin() + e.size() / 2, e.end());
        return e.empty() ? 0.0 : e[e.size() / 2];
    }
    QString describe() const
    {
        return QStringLiteral(
            "%1 fish: %2 found, %3 split, %4 the right way; %5 counted, %6 false; length error %7 m")
            .arg(truthFish)
            .arg(found)
            .arg(split)
            .arg(rightDirection)
            .arg(counted)
            .arg(falseFish)
            .arg(medianLengthError(), 0, 'f', 3);
    }
};

// Each counted fish is the true fish nearest it at the middle of its track.
void Score::score(const Sources::SyntheticPassage& passage, const FishCounter& counter)
{
    const auto& truth = passage.getFish();
    std::vector<int> timesCounted(truth.size(), 0);
    for (const FishRecord& fish : counter.getFish()) {
        std::vector<const TrackPoint*> points;
        for (const TrackPoint& p : counter.getTrackPoints())
            if (p.fishId == fish.id && p.detected)
                points.push_back(&p);
        const TrackPoint& mid = *points[points.size() / 2];
        const Sources::SyntheticFish* match = nullptr;
        double nearest = 0.75;
        for (const auto& t : passage.getPositions()) {
            const double distance = std::hypot(t.rangeM * std::sin(t.bearingDeg * M_PI / 180.0)
                    - mid.rangeM * std::sin(mid.bearingDeg * M_PI / 180.0),
                t.rangeM * std::cos(t.bearingDeg * M_PI / 180.0)
                    - mid.rangeM * std::cos(mid.bearingDeg * M_PI / 180.0));
            if (t.frame == mid.frame && t.visible && distance < nearest) {
                nearest = distance;
                match = &truth[std::size_t(t.id)];
            }
        }
        if (match && match->brief)
            continue;
        ++counted;
        if (!match) {
            ++falseFish;
        } else if (timesCounted[std::size_t(match->id)]++ == 0) {
            rightDirection += (fish.direction == Direction::Up) == match->up;
            lengthErrors.push_back(std::abs(fish.lengthM - match->lengthM));
        }
    }
    for (const auto& t : truth) {
        if (t.brief || t.firstFrame < 0)
            continue;
        ++truthFish;
        found += timesCounted[std::size_t(t.id)] > 0;
        split += timesCounted[std::size_t(t.id)] > 1;
    }
}

Sources::SyntheticPassageOptions passageOptions(int beams, int seed)
{
    Sources::SyntheticPassageOptions options;
    options.beams = beams;
    options.samples = 1000;
    options.frames = 600;
    options.fish = 10;
    options.seed = std::uint64_t(seed);
    return options;
}

/// Counts a passage as a recording would be: the background learnt from frames
/// spread over it first.
void countPassage(Sources::SyntheticPassage& passage, FishCounter& counter)
{
    std::vector<NereonImage> samples;
    const int frames = passage.getOptions().frames;
    for (int i = 0; i < frames; i += frames / 40) {
        Sources::SourceFrame frame;
        passage.renderFrame(i, frame);
        samples.push_back(frame.image);
    }
    counter.learnBackground(samples);
    passage.rewind();
    Sources::SourceFrame frame;
    while (passage.nextFrame(frame))
        counter.addFrame(frame);
    counter.finish();
}

} // namespace

class TestAnalysisPassage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { cv::setNumThreads(1); }
    void countsPassages_data();
    void countsPassages();
    void countsRecordingFromFile();
};

void TestAnalysisPassage::countsPassages_data()
{
    QTest::addColumn<int>("beams");
    QTest::newRow("48 beams") << 48;
    QTest::newRow("128 beams") << 128;
}

void TestAnalysisPassage::countsPassages()
{
    QFETCH(int, beams);
    // Several passages, each with faint fish, fish crossing each other and glimpses.
    Score total;
    for (int seed = 1; seed <= 5; ++seed) {
        Sources::SyntheticPassage passage(passageOptions(beams, seed));
        FishCounter counter;
        countPassage(passage, counter);
        total.score(passage, counter);
    }
    qInfo().noquote() << "all" << total.describe();
    QVERIFY(total.found >= 0.95 * total.truthFish);
    QVERIFY(std::abs(total.counted - total.truthFish) <= 0.1 * total.truthFish);
    QVERIFY(total.split <= 2);
    QCOMPARE(total.falseFish, 0);
    QCOMPARE(total.rightDirection, total.found);
    QVERIFY(total.medianLengthError() < 0.1);
}

void TestAnalysisPassage::countsRecordingFromFile()
{
    // The same passage written as an ARIS recording and read back counts the same.
    Sources::SyntheticPassage passage(passageOptions(64, 7));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("passage.aris"));
    Sources::ArisWriter writer;
    QVERIFY2(writer.open(path, passage.getWriterOptions()), qPrintable(writer.getErrorString()));
    Sources::SourceFrame frame;
    while (passage.nextFrame(frame))
        QVERIFY(writer.write(frame));
    writer.close();

    FishCounter direct;
    countPassage(passage, direct);

    QString error;
    const auto reader = Sources::FrameReader::create(path, &error);
    QVERIFY2(reader, qPrintable(error));
    std::vector<NereonImage> samples;
    for (int i = 0; i < reader->getFrameCount(); i += reader->getFrameCount() / 40) {
        QVERIFY(reader->readFrame(i, frame));
        samples.push_back(frame.image);
    }
    FishCounter fromFile;
    fromFile.learnBackground(samples);
    reader->seekToFrame(0);
    while (reader->next(frame))
        fromFile.addFrame(frame);
    fromFile.finish();

    QVERIFY(!direct.getFish().empty());
    QCOMPARE(fromFile.getFramesProcessed(), passage.getOptions().frames);
    QCOMPARE(fromFile.getFish().size(), direct.getFish().size());
    for (std::size_t i = 0; i < direct.getFish().size(); ++i) {
        const FishRecord& a = direct.getFish()[i];
        const FishRecord& b = fromFile.getFish()[i];
        QCOMPARE(b.firstFrame, a.firstFrame);
        QCOMPARE(b.lastFrame, a.lastFrame);
        QCOMPARE(b.firstTime, a.firstTime);
        QVERIFY(b.direction == a.direction);
        QVERIFY(std::abs(b.lengthM - a.lengthM) < 0.01);
    }
}

QTEST_GUILESS_MAIN(TestAnalysisPassage)
#include "tst_analysis_passage.moc"
