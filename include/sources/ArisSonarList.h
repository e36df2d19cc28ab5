#pragma once

#include "TernwickNereonSourcesExport.h"

#include "sources/ArisBeacon.h"

#include <QObject>

#include <cstdint>
#include <memory>
#include <vector>

class QUdpSocket;

namespace Halcyra::Nereon::Sources {

/**
 * The ARIS sonars heard on the network: it listens for their beacons (UDP port
 * 56124 by default) and keeps the last beacon of each, forgetting a sonar that has
 * been silent for ten seconds. Garbage on the port is ignored. Lives on the thread
 * that creates it.
 */
class TERNWICK_NEREON_SOURCES_EXPORT ArisSonarList : public QObject
{
    Q_OBJECT

public:
    /// A list that hears nothing until listen() is called.
    explicit ArisSonarList(QObject* parent = nullptr);
    ~ArisSonarList() override;

    /// Starts listening on `port`; false, with getErrorString(), if it cannot be bound.
    bool listen(std::uint16_t port = 56124);
    /// The sonars heard, in the order first heard.
    std::vector<ArisBeacon> getSonars() const;
    /// Why listen() failed.
    QString getErrorString() const;

signals:
    /// A sonar was heard for the first time, changed its state, or fell silent.
    void sonarsChanged();

private:
    void readBeacons();
    void forgetSilent();

    struct Heard;
    std::unique_ptr<QUdpSocket> socket;
    std::vector<Heard> heard;
    QString errorString;
};

} // namespace Halcyra::Nereon::Sources
