#include "PassageScore.h"
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
    PassageScore total;
    for (int seed = 1; seed <= 5; ++seed) {
        Sources::SyntheticPassage passage(passageOptions(beams, seed));
        FishCounter counter;
        countPassage(passage, counter);
        const PassageScore score = PassageScore::score(passage, counter);
        qInfo().noquote() << "seed" << seed << score.describe();
        total.add(score);
    }
    qInfo().noquote() << "all" << total.describe();
    QVERIFY(total.found >= 0.95 * total.truthFish);
    QVERIFY(std::abs(total.counted - total.truthFish) <= 0.1 * total.truthFish);
    QVERIFY(total.split <= 2);
    QCOMPARE(total.falseFish, 0);
    QCOMPARE(total.rightDirection, total.found);
    QVERIFY(total.getMedianLengthError() < 0.1);
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
