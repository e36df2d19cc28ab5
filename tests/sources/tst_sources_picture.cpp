#include "ArisFrameDecoder.h"
#include "ArisFrameHeader.h"
#include "FanDisplay.h"

#include "FanView.h"
#include "GlTestSupport.h"
#include "TestUnits.h"

#include <QApplication>
#include <QTest>

using namespace Halcyra::Nereon::Sources;
using Halcyra::Nereon::Visualisation::FanDisplay;

class TestSourcesPicture : public QObject
{
    Q_OBJECT

private slots:
    void windowBeyondTheSonarDrawsAtTrueRange()
    {
        // 48 beams, a sample every 7.5 mm from 3 m on: sample 200 lies at 4.5 m.
        ArisFrameHeader header;
        header.version = ArisFrameHeader::signature;
        header.pingMode = 1;
        header.systemType = 2;
        header.samplesPerBeam = 400;
        header.samplePeriod = 10;
        header.soundSpeed = 1500.0f;
        header.sampleStartDelay = 4000;
        std::vector<std::uint8_t> samples(48 * 400, 0);
        for (int k = 198; k <= 202; ++k)
            std::fill_n(samples.begin() + k * 48, 48, std::uint8_t(255));
        SourceFrame frame;
        QString problem;
        QVERIFY2(ArisFrameDecoder::decode(header, samples.data(), samples.size(), frame, &problem),
            qPrintable(problem));
        QCOMPARE(frame.firstSampleRow, 400);
        QVERIFY(std::abs(frame.image.getRange() - 6.0) < 1e-9);

        TestSupport::ScaledUnit metres = TestSupport::metres();
        FanDisplay display;
        display.setDistanceUnit(&metres);
        display.resize(400, 400);
        QVERIFY(TestSupport::showExposed(display));
        display.newImageReceived(frame.image);
        const QImage picture = display.grabFramebuffer();

        // Along the centre line: bright at 4.5 m of the 6 m range, dark a few centimetres either side.
        auto lightness = [&](double metres) {
            return picture.pixelColor(TestSupport::pixelOf(display, picture, QPointF(0.0, metres / 6.0))).lightness();
        };
        const int echo = lightness(4.5);
        for (double elsewhere : { 1.5, 4.3, 4.7, 5.5 }) {
            if (echo < lightness(elsewhere) + 80) {
                TestSupport::saveFailurePicture(picture, "window");
                QFAIL(qPrintable(QString("echo %1 at 4.5 m, %2 at %3 m").arg(echo).arg(lightness(elsewhere)).arg(elsewhere)));
            }
        }
    }
};

int main(int argc, char** argv)
{
    TestSupport::useTestSurfaceFormat();
    QApplication app(argc, argv);
    TestSourcesPicture test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sources_picture.moc"
