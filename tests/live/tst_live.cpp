#include "ArisFramePartAssembler.h"
#include "FakeArisSonar.h"
#include "frame_stream.pb.h"
#include "sources/ArisBeacon.h"
#include "sources/ArisLiveSource.h"
#include "sources/ArisReader.h"
#include "sources/ArisSonarList.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QUdpSocket>

#include <map>
#include <vector>

using namespace Halcyra::Nereon::Sources;
using Fault = FakeArisSonar::Fault;
using LinkState = ArisLiveSource::LinkState;

Q_DECLARE_METATYPE(FakeArisSonar::Fault)

namespace {

const QString sampleAris = QStringLiteral(NEREON_REAL_DATA_DIR "/aris/sample.aris");

/// A UDP port nobody uses right now.
std::uint16_t freePort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress(QHostAddress::LocalHost), 0);
    return probe.localPort();
}

/// A fake sonar playing the sample recording, and a live source connected to it by address.
struct Session
{
    FakeArisSonar sonar;
    ArisLiveSource source;
    std::vector<SourceFrame> frames;
    QStringList problems;
    QList<LinkState> states;
    ArisLiveSettings settings;

    bool start(Fault fault = Fault::None, double loss = 0.0, std::uint16_t commandPort = 0)
    {
        FakeArisSonar::Options options;
        options.file = sampleAris;
        options.commandPort = 0;
        options.beaconPort = freePort();
        options.lossPercent = loss;
        sonar.setFault(fault);
        QString error;
        if (!sonar.start(options, &error)) {
            qWarning("%s", qPrintable(error));
            return false;
        }
        settings.commandPort = commandPort ? commandPort : sonar.getCommandPort();
        settings.beaconPort = options.beaconPort;
        QObject::connect(&source, &FrameSource::frameReady, &source,
            [this](const SourceFrame& frame) { frames.push_back(frame); });
        QObject::connect(&source, &ArisLiveSource::problem, &source, [this](const QString& p) { problems << p; });
        QObject::connect(&source, &ArisLiveSource::linkStateChanged, &source,
            [this](LinkState state) { states << state; });
        return true;
    }
};

bool sameFrame(const SourceFrame& a, const SourceFrame& b)
{
    return a.image.getData() == b.image.getData() && a.image.getBearings() == b.image.getBearings()
        && a.image.getRange() == b.image.getRange() && a.image.getWidth() == b.image.getWidth()
        && a.image.getHeight() == b.image.getHeight() && a.timestamp == b.timestamp
        && a.firstSampleRow == b.firstSampleRow && a.windowStart == b.windowStart;
}

} // namespace

class TestLive : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        if (!QFile::exists(sampleAris))
            QSKIP("the real ARIS recording (../shared/real-data/aris/sample.aris) is not here");
    }

    void framesEqualTheFileReaders()
    {
        Session session;
        QVERIFY(session.start());
        // Found by its serial number, through its beacons.
        session.source.connectToSonar(QString::number(session.sonar.getSerialNumber()), session.settings);
        QTRY_VERIFY_WITH_TIMEOUT(session.frames.size() >= 8, 10000);
        QVERIFY(session.states.contains(LinkState::Searching));
        QCOMPARE(session.source.getLinkState(), LinkState::Receiving);
        QVERIFY(session.problems.isEmpty());

        // Live frame n (from 1) is the file's frame n - 1, looped: the same, byte for byte.
        ArisReader reader;
        QVERIFY(reader.open(sampleAris));
        for (const SourceFrame& live : session.frames) {
            SourceFrame file;
            QVERIFY(reader.readFrame(live.index % reader.getFrameCount(), file));
            QVERIFY2(sameFrame(live, file), qPrintable(QString("frame %1").arg(live.index)));
        }
        const ArisLiveSource::Statistics statistics = session.source.getStatistics();
        QVERIFY(statistics.frames >= 8);
        QCOMPARE(statistics.droppedFrames, std::int64_t(0));
        QCOMPARE(session.source.getDescription().beamCount, 48);
    }

    void faultsDropFramesAndSayWhyOnce_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<bool>("framesArrive");
        QTest::addColumn<QString>("reason");
        QTest::newRow("parts lost") << Fault::LoseParts << true << "incomplete";
        QTest::newRow("parts repeated") << Fault::RepeatParts << true << "received twice";
        QTest::newRow("parts out of order") << Fault::ReverseParts << true << "";
        QTest::newRow("part of a wrong size") << Fault::WrongSizePart << false << "beyond the frame's size";
        QTest::newRow("absurd frame size") << Fault::AbsurdSize << false << "impossible frame size";
        QTest::newRow("older frames") << Fault::OlderFrames << true << "older frame";
    }

    void faultsDropFramesAndSayWhyOnce()
    {
        QFETCH(Fault, fault);
        QFETCH(bool, framesArrive);
        QFETCH(QString, reason);
        Session session;
        QVERIFY(session.start(fault, 2.0));
        session.source.connectToSonar("127.0.0.1", session.settings);
        QTRY_VERIFY_WITH_TIMEOUT(session.sonar.getFramesSent() >= 10, 10000);
        QTest::qWait(200);
        if (framesArrive)
            QVERIFY(!session.frames.empty());
        else
            QVERIFY(session.frames.empty());
        // What arrives is whole: the file's frames.
        ArisReader reader;
        QVERIFY(reader.open(sampleAris));
        for (const SourceFrame& live : session.frames) {
            SourceFrame file;
            QVERIFY(reader.readFrame(live.index % reader.getFrameCount(), file));
            QVERIFY(sameFrame(live, file));
        }
        if (reason.isEmpty()) {
            QVERIFY2(session.problems.isEmpty(), qPrintable(session.problems.join('\n')));
            return;
        }
        const QStringList matching = session.problems.filter(reason);
        QVERIFY2(matching.size() == 1, qPrintable(session.problems.join('\n')));
        const auto drops = session.source.getStatistics().dropsByReason;
        QVERIFY(std::any_of(drops.begin(), drops.end(), [&](const auto& d) { return d.first.contains(reason) && d.second > 1; }));
    }

    void strayPartsDoNotStopThePicture_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QString>("forger"); ///< address of a stranger sending parts, or empty
        QTest::addColumn<QString>("reason");
        QTest::newRow("stranger's parts") << Fault::None << "127.0.0.2"
                                          << "another address";
        QTest::newRow("parts from another port") << Fault::None << "127.0.0.1"
                                                 << "another port";
        QTest::newRow("sonar's own parts far ahead") << Fault::FarAheadParts << ""
                                                     << "far ahead";
    }

    void strayPartsDoNotStopThePicture()
    {
        QFETCH(Fault, fault);
        QFETCH(QString, forger);
        QFETCH(QString, reason);
        Session session;
        session.settings.framePort = freePort();
        QVERIFY(session.start(fault));
        session.source.connectToSonar("127.0.0.1", session.settings);
        QTRY_VERIFY_WITH_TIMEOUT(session.frames.size() >= 2, 10000);

        // A stream of parts claiming the newest frame there can be, as fast as the real ones.
        QUdpSocket stranger;
        if (!forger.isEmpty() && !stranger.bind(QHostAddress(forger), 0))
            QSKIP("no second loopback address to send from");
        frame_stream::FramePart part;
        part.set_frame_index(0x7fffffff);
        part.set_total_data_size(48 * 1024);
        part.set_data(std::string(1000, '\x55'));
        const std::string bytes = part.SerializeAsString();
        const int sentBefore = session.sonar.getFramesSent();
        const std::size_t receivedBefore = session.frames.size();
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 2500) {
            if (!forger.isEmpty())
                stranger.writeDatagram(
                    bytes.data(), qint64(bytes.size()), QHostAddress::LocalHost, session.settings.framePort);
            QTest::qWait(5);
        }
        // Every frame but the one a stray part cut into arrives, and the link never looked lost.
        const int sent = session.sonar.getFramesSent() - sentBefore;
        const int received = int(session.frames.size() - receivedBefore);
        QVERIFY2(sent >= 5 && received >= sent - 2,
            qPrintable(QString("%1 of %2 frames").arg(received).arg(sent)));
        QVERIFY(!session.states.contains(LinkState::Lost));
        QVERIFY2(!session.problems.filter(reason).isEmpty(), qPrintable(session.problems.join('\n')));
        ArisReader reader;
        QVERIFY(reader.open(sampleAris));
        for (const SourceFrame& live : session.frames) {
            SourceFrame file;
            QVERIFY(reader.readFrame(live.index % reader.getFrameCount(), file));
            QVERIFY(sameFrame(live, file));
        }
    }

    void lostLinksAreSaidAndTriedAgain_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("sonar stops sending") << "silent";
        QTest::newRow("connection refused") << "refused";
        QTest::newRow("connection silent") << "hangs";
        QTest::newRow("connection reset") << "reset";
    }

    void lostLinksAreSaidAndTriedAgain()
    {
        QFETCH(QString, how);
        Session session;
        QVERIFY(session.start(how == "hangs" ? Fault::Hangs : Fault::None, 0.0,
            how == "refused" ? freePort() : 0));
        session.source.connectToSonar("127.0.0.1", session.settings);
        if (how == "silent" || how == "reset") {
            QTRY_VERIFY_WITH_TIMEOUT(!session.frames.empty(), 10000);
            if (how == "silent")
                session.sonar.setFault(Fault::Silent);
            else
                session.sonar.dropConnection();
        }
        QTRY_VERIFY_WITH_TIMEOUT(session.states.contains(LinkState::Lost), 8000);
        const std::size_t before = session.frames.size();
        QTRY_VERIFY_WITH_TIMEOUT(session.source.getStatistics().reconnections >= 1, 8000);
        if (how == "reset") {
            // The sonar is still there: frames come again.
            QTRY_VERIFY_WITH_TIMEOUT(session.frames.size() > before, 10000);
            QCOMPARE(session.source.getLinkState(), LinkState::Receiving);
        }
        session.source.disconnectFromSonar();
        QTRY_COMPARE(session.source.getLinkState(), LinkState::Idle);
    }

    void beaconsAndTheSonarList()
    {
        // Garbage and truncated beacons are not sonars.
        ArisBeacon beacon;
        beacon.serialNumber = 1098;
        beacon.systemType = 2;
        beacon.softwareVersion = "2.8.1";
        const QByteArray good = beacon.serialise();
        ArisBeacon read;
        QVERIFY(ArisBeacon::parse(good, read));
        QCOMPARE(read.serialNumber, 1098u);
        QCOMPARE(read.getModel(), QString("ARIS 1200"));
        QCOMPARE(read.softwareVersion, QString("2.8.1"));
        QVERIFY(!ArisBeacon::parse(QByteArray(), read));
        QVERIFY(!ArisBeacon::parse(QByteArray("\xff\xff\xff\xff garbage"), read));
        QVERIFY(!ArisBeacon::parse(good.left(good.size() - 3), read));

        const std::uint16_t port = freePort();
        ArisSonarList list;
        QVERIFY(list.listen(port));
        QUdpSocket sender;
        sender.writeDatagram("nonsense", QHostAddress::LocalHost, port);
        sender.writeDatagram(good, QHostAddress::LocalHost, port);
        QTRY_COMPARE(int(list.getSonars().size()), 1);
        QCOMPARE(list.getSonars().front().serialNumber, 1098u);
        QVERIFY(list.getSonars().front().address.isLoopback());
    }

    void assemblerRefusesBeforeAllocating()
    {
        ArisFramePartAssembler assembler;
        frame_stream::FramePart part;
        part.set_frame_index(1);
        part.set_total_data_size(0x7fffffff);
        part.set_data("abc");
        const std::string absurd = part.SerializeAsString();
        const auto result = assembler.add(QByteArray(absurd.data(), int(absurd.size())));
        QCOMPARE(result.outcome, ArisFramePartAssembler::Outcome::Dropped);
        QVERIFY(result.reason.contains("impossible"));
        QCOMPARE(assembler.add(QByteArray("\x08")).outcome, ArisFramePartAssembler::Outcome::Dropped);
        // Whole by its size but with a header that disagrees: dropped, not handed out.
        part.set_total_data_size(3);
        part.set_header(std::string(744, '\0'));
        const std::string bytes = part.SerializeAsString();
        const auto mismatched = assembler.add(QByteArray(bytes.data(), int(bytes.size())));
        QCOMPARE(mismatched.outcome, ArisFramePartAssembler::Outcome::Dropped);
        QVERIFY(mismatched.reason.contains("header"));
    }
};

QTEST_GUILESS_MAIN(TestLive)

#include "tst_live.moc"
