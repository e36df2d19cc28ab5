#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

#include <cstdint>
#include <random>
#include <vector>

class QTcpServer;
class QTcpSocket;
class QTimer;
class QUdpSocket;

/**
 * A stand-in for an ARIS sonar on the network, playing a recording: it sends
 * beacons, takes the command connection, and once it has been told where to send
 * frames and given acoustic settings, streams the recording's frames in a loop at
 * their frame rate, the way a sonar does: samples in the order the sonar's
 * channels produce them, the header in the first part, split into parts. Used by
 * the tests, and to try live mode without a sonar.
 */
class FakeArisSonar : public QObject
{
    Q_OBJECT

public:
    /// Ways to misbehave, for tests of the receiving end.
    enum class Fault
    {
        None,
        Silent, ///< stops sending frames, keeps the connection
        LoseParts, ///< drops parts at random (lossPercent)
        RepeatParts, ///< sends every part twice
        ReverseParts, ///< sends a frame's parts last first
        WrongSizePart, ///< one part of each frame claims more data than the frame has
        AbsurdSize, ///< frames claim a size no sonar makes
        OlderFrames, ///< every other frame is numbered as an older one
        FarAheadParts, ///< amid its third frame, stray parts claim frames 500 on and 2^31 - 1
        Hangs, ///< takes the connection and never reads it
    };

    struct Options
    {
        QString file;
        QHostAddress address = QHostAddress::LocalHost; ///< listens here; beacons go here
        std::uint16_t commandPort = 56888; ///< 0: any free port
        std::uint16_t beaconPort = 56124; ///< where beacons are sent
        std::uint32_t serialNumber = 0; ///< 0: the recording's
        double lossPercent = 0.0;
        int partSize = 1400; ///< bytes of samples a part
    };

    explicit FakeArisSonar(QObject* parent = nullptr);
    ~FakeArisSonar() override;

    /// Opens the recording and starts listening and sending beacons; false, with `error`.
    bool start(const Options& options, QString* error);
    std::uint16_t getCommandPort() const;
    std::uint32_t getSerialNumber() const { return serialNumber; }
    void setFault(Fault fault) { this->fault = fault; }
    /// Frames sent so far.
    int getFramesSent() const { return framesSent; }
    /// Closes the command connection, as a sonar that is switched off does.
    void dropConnection();

private:
    void sendBeacon();
    void accept();
    void readCommands();
    void sendFrame();
    void sendPart(const QByteArray& part);
    void sendQueued();

    Options options;
    QTcpServer* server = nullptr;
    QTcpSocket* client = nullptr;
    QUdpSocket* udp = nullptr;
    QTimer* beaconTimer = nullptr;
    QTimer* frameTimer = nullptr;
    QTimer* pacer = nullptr;
    std::vector<QByteArray> queued; ///< parts of the frame being sent, last first
    QByteArray pending;
    QHostAddress receiver;
    std::uint16_t receiverPort = 0;
    bool acousticsSet = false;

    std::uint32_t serialNumber = 0;
    int systemType = 0;
    int beams = 0;
    int samplesPerBeam = 0;
    int frameCount = 0;
    double frameRate = 10.0;
    Fault fault = Fault::None;
    int framesSent = 0;
    std::mt19937 random { 7 };
};
