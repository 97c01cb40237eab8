#include "ApplicationLink.h"
#include "ApplicationManagerPrivate.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/MessageBase.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QLocalSocket>
#include <QThread>

namespace Velmora::OstrelAdapter {

Application::Application(qint64 processId, StartupError error)
    : m_processId(processId)
    , m_startupError(error)
{
}

Application::~Application() = default;

void Application::AttachLink(ApplicationLink* link)
{
    m_link = link;
    if (link)
        link->SetApplication(this);
}

bool Application::IsConnected() const
{
    return m_link && m_link->IsOpen();
}

int Application::Connect(int timeoutMs)
{
    if (IsConnected())
        return 0;
    ApplicationManager* manager = ApplicationManager::GetInstance();
    if (!manager)
        return 2;
    const QString endpoint = ApplicationManager::EndpointFor(m_processId);
    if (endpoint.isEmpty())
        return 2;

    // A process just started needs a moment before it listens, so keep knocking until the deadline.
    QDeadlineTimer deadline(qMax(0, timeoutMs));
    auto socket = std::make_unique<QLocalSocket>();
    for (;;) {
        if (QFileInfo::exists(endpoint)) {
            socket->connectToServer(endpoint);
            const int wait = int(qBound(qint64(1), deadline.remainingTime(), qint64(500)));
            if (socket->waitForConnected(wait))
                break;
            socket->abort();
        }
        if (deadline.hasExpired())
            return 1;
        QThread::msleep(quint64(qBound(qint64(1), deadline.remainingTime(), qint64(5))));
    }

    ApplicationLink* link = manager->d->AdoptSocket(socket.release());
    link->SetHelloSeen();
    AttachLink(link);
    QVariantMap hello;
    hello.insert(QStringLiteral("ProcessId"), QCoreApplication::applicationPid());
    if (!link->SendFrame(ApplicationLink::kHelloName, hello))
        return 1;
    return 0;
}

bool Application::Send(ApplicationMessage* message)
{
    if (!message || !IsConnected())
        return false;
    return m_link->SendFrame(message->GetName(), message->GetData());
}

} // namespace Velmora::OstrelAdapter
