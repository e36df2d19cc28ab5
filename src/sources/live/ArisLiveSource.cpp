#include "sources/ArisLiveSource.h"

#include "ArisLiveLink.h"

#include <QMetaObject>
#include <QThread>

namespace Halcyra::Nereon::Sources {

namespace {
const int linkStateMetaType
    = qRegisterMetaType<ArisLiveSource::LinkState>("Halcyra::Nereon::Sources::ArisLiveSource::LinkState");
}

ArisLiveSource::ArisLiveSource(QObject* parent)
    : FrameSource(parent)
    , thread(std::make_unique<QThread>())
{
    thread->setObjectName(QStringLiteral("ARIS live"));
    link = new ArisLiveLink(*this);
    link->moveToThread(thread.get());
    QObject::connect(thread.get(), &QThread::finished, link, &QObject::deleteLater);
    thread->start();
}

ArisLiveSource::~ArisLiveSource()
{
    ArisLiveLink* target = link;
    QMetaObject::invokeMethod(link, [target] { target->stop(); }, Qt::BlockingQueuedConnection);
    thread->quit();
    thread->wait();
}

void ArisLiveSource::connectToSonar(const QString& sonar, const ArisLiveSettings& settings)
{
    ArisLiveLink* target = link;
    QMetaObject::invokeMethod(link, [target, sonar, settings] { target->start(sonar, settings); });
}

void ArisLiveSource::disconnectFromSonar()
{
    ArisLiveLink* target = link;
    QMetaObject::invokeMethod(link, [target] { target->stop(); });
}

ArisLiveSource::LinkState ArisLiveSource::getLinkState() const
{
    return link->getState();
}

ArisLiveSource::Statistics ArisLiveSource::getStatistics() const
{
    return link->getStatistics();
}

SonarDescription ArisLiveSource::getDescription() const
{
    return link->getDescription();
}

} // namespace Halcyra::Nereon::Sources
