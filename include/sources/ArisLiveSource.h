#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/ArisLiveSettings.h"
#include "sources/FrameSource.h"

#include <QString>

#include <cstdint>
#include <map>
#include <memory>

class QThread;

namespace Halcyra::Nereon::Sources {

class ArisLiveLink;

/**
 * A live ARIS sonar on the network, as a frame source: it finds the sonar by its
 * beacons (or takes its address), opens the command connection, sends the start
 * sequence (frame-stream receiver, date and time, acoustic settings, salinity,
 * focus) and a keep-alive every second, and receives the frame stream: parts are
 * assembled, acknowledged, their samples put in display order and decoded exactly
 * as recordings are (bearings from the beam-angle tables, the true window).
 *
 * All of this runs on a thread of the source's own; frames leave through the
 * FrameSource signals, queued to receivers on other threads, so the GUI thread
 * never waits for the network. A frame that cannot be assembled whole is dropped
 * and counted by reason; each kind of fault is reported once through problem().
 * A lost link (the connection closes, or no frame comes for three seconds) is
 * reported through linkStateChanged() and connected again every two seconds.
 */
class TERNWICK_NEREON_SOURCES_EXPORT ArisLiveSource : public FrameSource
{
    Q_OBJECT

public:
    /// Where the link to the sonar stands.
    enum class LinkState
    {
        Idle, ///< not asked to connect
        Searching, ///< listening for the sonar's beacon
        Connecting, ///< command connection being made, or made and no frame yet
        Receiving, ///< frames are coming
        Lost, ///< the link broke; trying again
    };
    Q_ENUM(LinkState)

    /// What has come in so far.
    struct Statistics
    {
        std::int64_t frames = 0; ///< whole frames handed out
        std::int64_t parts = 0; ///< frame parts received
        std::int64_t droppedFrames = 0; ///< frames begun but not handed out
        std::int64_t droppedParts = 0; ///< parts that belonged to no frame that could be made
        double frameRate = 0.0; ///< frames a second over the last few seconds
        int reconnections = 0; ///< links lost and made again
        /// Microseconds from reading a frame's last part to the frame leaving the source
        /// (assembly, sample order, decoding), median and 99th percentile of the last 1000.
        double latencyMedian = 0.0;
        /// See latencyMedian.
        double latency99 = 0.0;
        std::map<QString, std::int64_t> dropsByReason; ///< dropped frames and parts by why
    };

    /// A source that is not connected; its thread starts at once and waits.
    explicit ArisLiveSource(QObject* parent = nullptr);
    ~ArisLiveSource() override;

    /// Connects to the sonar with serial number `sonar` (waiting for its beacon) or at the
    /// address `sonar`, and asks it to image with `settings`.
    void connectToSonar(const QString& sonar, const ArisLiveSettings& settings = ArisLiveSettings());
    /// Stops the frame stream and closes the connection.
    void disconnectFromSonar();

    /// The link's state now. Thread-safe.
    LinkState getLinkState() const;
    /// Counts so far. Thread-safe.
    Statistics getStatistics() const;
    SonarDescription getDescription() const override;

signals:
    /// The link changed state; `message` says why, in words for a status bar.
    void linkStateChanged(Halcyra::Nereon::Sources::ArisLiveSource::LinkState state, const QString& message);
    /// A kind of fault seen for the first time since connecting (frames dropped, and why).
    void problem(const QString& message);

private:
    friend class ArisLiveLink;

    std::unique_ptr<QThread> thread;
    ArisLiveLink* link = nullptr; ///< lives on `thread`
};

} // namespace Halcyra::Nereon::Sources
