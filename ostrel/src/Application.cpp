// SPDX-License-Identifier: MIT
#include "ApplicationLink.h"
#include "ApplicationManagerPrivate.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QLocalSocket>
#include <QThread>

namespace Velmora::OstrelAdapter {

Application::Application(qint64 processId, StartupError error) : m_processId(processId), m_startupError(error)
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
        return Linked;
    ApplicationManager* manager = ApplicationManager::GetInstance();
    if (!manager)
        return NoEndpointFolder;
    const QString endpoint = ApplicationManager::EndpointFor(m_processId);
    if (endpoint.isEmpty())
        return NoEndpointFolder;

    // A process just started needs a moment before it listens, so keep knocking until the deadline.
    QDeadlineTimer deadline(qMax(0, timeoutMs));
    auto socket = std::make_unique<QLocalSocket>();
    for (;;)
    {
        if (QFileInfo::exists(endpoint))
        {
            socket->connectToServer(endpoint);
            const int wait = int(qBound(qint64(1), deadline.remainingTime(), qint64(500)));
            if (socket->waitForConnected(wait))
                break;
            socket->abort();
        }
        if (deadline.hasExpired())
            return NotListening;
        QThread::msleep(quint64(qBound(qint64(1), deadline.remainingTime(), qint64(5))));
    }

    ApplicationLink* link = manager->d->AdoptSocket(socket.release());
    if (!link)
        return NotListening;
    link->SetHelloSeen();
    AttachLink(link);
    QVariantMap hello;
    hello.insert(QStringLiteral("ProcessId"), QCoreApplication::applicationPid());
    if (!link->SendFrame(ApplicationLink::kHelloName, hello))
        return NotListening;
    return Linked;
}

bool Application::Send(ApplicationMessage* message)
{
    // A frame without a name is what a broken peer sends; the receiver would close the link.
    if (!message || message->GetName().isEmpty() || !IsConnected())
        return false;
    return m_link->SendFrame(message->GetName(), message->GetData());
}

} // namespace Velmora::OstrelAdapter
