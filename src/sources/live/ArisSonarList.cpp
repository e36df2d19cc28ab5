#include "sources/ArisSonarList.h"

#include <QDateTime>
#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>

namespace Halcyra::Nereon::Sources {

namespace {
constexpr qint64 silenceLimit = 10000; // ms
}

struct ArisSonarList::Heard
{
    ArisBeacon beacon;
    qint64 lastHeard = 0;
};

ArisSonarList::ArisSonarList(QObject* parent)
    : QObject(parent)
{
    auto* sweep = new QTimer(this);
    sweep->setInterval(1000);
    connect(sweep, &QTimer::timeout, this, &ArisSonarList::forgetSilent);
    sweep->start();
}

ArisSonarList::~ArisSonarList() = default;

bool ArisSonarList::listen(std::uint16_t port)
{
    socket = std::make_unique<QUdpSocket>();
    // Other programs on this machine may listen for the same beacons.
    if (!socket->bind(QHostAddress::AnyIPv4, port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)) {
        errorString = QStringLiteral("cannot listen for sonars on UDP port %1: %2").arg(port).arg(socket->errorString());
        socket.reset();
        return false;
    }
    connect(socket.get(), &QUdpSocket::readyRead, this, &ArisSonarList::readBeacons);
    return true;
}

std::vector<ArisBeacon> ArisSonarList::getSonars() const
{
    std::vector<ArisBeacon> sonars;
    for (const Heard& h : heard)
        sonars.push_back(h.beacon);
    return sonars;
}

QString ArisSonarList::getErrorString() const
{
    return errorString;
}

void ArisSonarList::readBeacons()
{
    bool changed = false;
    while (socket && socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram(4096);
        ArisBeacon beacon;
        beacon.address = datagram.senderAddress();
        if (!ArisBeacon::parse(datagram.data(), beacon))
            continue;
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        auto known = std::find_if(heard.begin(), heard.end(),
            [&](const Heard& h) { return h.beacon.serialNumber == beacon.serialNumber; });
        if (known == heard.end()) {
            heard.push_back({ beacon, now });
            changed = true;
        } else {
            changed = changed || known->beacon.busy != beacon.busy || known->beacon.address != beacon.address;
            known->beacon = beacon;
            known->lastHeard = now;
        }
    }
    if (changed)
        emit sonarsChanged();
}

void ArisSonarList::forgetSilent()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const auto silent = std::remove_if(
        heard.begin(), heard.end(), [now](const Heard& h) { return now - h.lastHeard > silenceLimit; });
    if (silent == heard.end())
        return;
    heard.erase(silent, heard.end());
    emit sonarsChanged();
}

} // namespace Halcyra::Nereon::Sources
