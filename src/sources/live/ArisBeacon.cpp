#include "sources/ArisBeacon.h"

#include "ArisFrameHeader.h"

#include "aris_availability.pb.h"

namespace Halcyra::Nereon::Sources {

namespace {
const int beaconMetaType = qRegisterMetaType<ArisBeacon>("Halcyra::Nereon::Sources::ArisBeacon");
}

QString ArisBeacon::getModel() const
{
    const QString model = ArisFrameHeader::modelOf(std::uint32_t(systemType));
    return model.isEmpty() ? QStringLiteral("ARIS (system type %1)").arg(systemType) : model;
}

bool ArisBeacon::parse(const QByteArray& datagram, ArisBeacon& out)
{
    aris::Availability message;
    // A beacon carries at least a serial number; an empty datagram parses as an empty message.
    if (datagram.isEmpty() || !message.ParseFromArray(datagram.constData(), datagram.size())
        || message.serialnumber() == 0)
        return false;
    ArisBeacon beacon;
    beacon.serialNumber = message.serialnumber();
    beacon.systemType = message.systemtype();
    if (message.has_softwareversion())
        beacon.softwareVersion = QStringLiteral("%1.%2.%3")
                                     .arg(message.softwareversion().major())
                                     .arg(message.softwareversion().minor())
                                     .arg(message.softwareversion().buildnumber());
    beacon.busy = message.connectionstate() == aris::Availability::BUSY;
    beacon.address = out.address;
    out = beacon;
    return true;
}

QByteArray ArisBeacon::serialise() const
{
    aris::Availability message;
    message.set_serialnumber(serialNumber);
    message.set_systemtype(aris::Availability::SystemType(systemType));
    const QStringList parts = softwareVersion.split('.');
    auto* version = message.mutable_softwareversion();
    version->set_major(parts.value(0).toUInt());
    version->set_minor(parts.value(1).toUInt());
    version->set_buildnumber(parts.value(2).toUInt());
    message.set_connectionstate(busy ? aris::Availability::BUSY : aris::Availability::AVAILABLE);
    const std::string bytes = message.SerializeAsString();
    return QByteArray(bytes.data(), int(bytes.size()));
}

} // namespace Halcyra::Nereon::Sources
