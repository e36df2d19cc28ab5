#pragma once

#include "ArisFramePartAssembler.h"
#include "sources/ArisBeacon.h"
#include "sources/ArisLiveSettings.h"
#include "sources/ArisLiveSource.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QSet>
#include <QString>

#include <deque>
#include <mutex>

class QTcpSocket;
class QTimer;
class QUdpSocket;

namespace Halcyra::Nereon::Sources {

/**
 * The network side of ArisLiveSource, on the source's thread: beacons, the command
 * connection and the frame stream. Everything here runs on that thread; what the
 * GUI thread reads (state, counts, description) is kept under a lock.
 */
class ArisLiveLink : public QObject
{
    Q_OBJECT

public:
    explicit ArisLiveLink(ArisLiveSource& source);
    ~ArisLiveLink() override;

    /// Slots for the source, called queued on the link's thread.
    void start(const QString& sonar, const ArisLiveSettings& settings);
    void stop();

    ArisLiveSource::LinkState getState() const;
    ArisLiveSource::Statistics getStatistics() const;
    SonarDescription getDescription() const;

private:
    void setState(ArisLiveSource::LinkState state, const QString& message);
    void readBeacons();
    void connectNow();
    void connected();
    void linkLost(const QString& why);
    void readFrameParts();
    void sendCommand(const QByteArray& command);
    void sendStartSequence();
    void report(const QString& reason);

    ArisLiveSource& source;
    ArisLiveSettings settings;
    QString target; ///< serial number or address
    QHostAddress address;
    quint16 sonarPort = 0; ///< where the sonar's frame parts come from, once a whole frame came; 0 before
    int systemType = -1; ///< from the beacon; -1 unknown
    bool running = false;

    QUdpSocket* beacons = nullptr;
    QTcpSocket* commands = nullptr;
    QUdpSocket* frames = nullptr;
    QTimer* pingTimer = nullptr;
    QTimer* watchdog = nullptr;
    QTimer* retry = nullptr;
    ArisFramePartAssembler assembler;
    QSet<QString> reported;
    std::uint32_t cookie = 0;
    QElapsedTimer sinceFrame;
    std::deque<qint64> frameTimes; ///< ms, for the frame rate
    std::deque<double> latencies; ///< microseconds, of the last frames

    mutable std::mutex mutex;
    ArisLiveSource::LinkState state = ArisLiveSource::LinkState::Idle;
    ArisLiveSource::Statistics statistics;
    SonarDescription description;
};

} // namespace Halcyra::Nereon::Sources
