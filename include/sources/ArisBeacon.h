#pragma once

#include "TernwickNereonSourcesExport.h"

#include <QByteArray>
#include <QHostAddress>
#include <QMetaType>
#include <QString>

#include <cstdint>

namespace Halcyra::Nereon::Sources {

/// What an ARIS sonar says of itself in the beacon it broadcasts about once a second.
struct TERNWICK_NEREON_SOURCES_EXPORT ArisBeacon
{
    /// As labelled on the sonar's housing.
    std::uint32_t serialNumber = 0;
    /// 0 ARIS 1800, 1 ARIS 3000, 2 ARIS 1200.
    int systemType = 0;
    /// "major.minor.build" of the sonar's software.
    QString softwareVersion;
    /// Another client is connected.
    bool busy = false;
    /// Where the beacon came from: the sonar's address.
    QHostAddress address;

    /// "ARIS 1200" and so on.
    QString getModel() const;
    /// Reads a beacon datagram; false for anything that is not one.
    static bool parse(const QByteArray& datagram, ArisBeacon& out);
    /// The datagram a sonar sends (for test sonars).
    QByteArray serialise() const;
};

} // namespace Halcyra::Nereon::Sources

Q_DECLARE_METATYPE(Halcyra::Nereon::Sources::ArisBeacon)
