// SPDX-License-Identifier: MIT
#include "ApplicationManagerPrivate.h"
#include "Endpoint.h"
#include "LinkTransport.h"

#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QPointer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>

#include <algorithm>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcHub, "velmora.ostrel.hub", QtWarningMsg)

namespace {

ApplicationManager* s_instance = nullptr;

} // namespace

ApplicationManagerPrivate::ApplicationManagerPrivate(const QString& name) : appName(name)
{
    listenCheck.setInterval(kListenCheckMs);
    connect(&listenCheck, &QTimer::timeout, this, &ApplicationManagerPrivate::CheckListening);
}

ApplicationManagerPrivate::~ApplicationManagerPrivate()
{
    // Nobody new links in and no handler is told anything from here on.
    handlers.clear();
    listenCheck.stop();
    unintroduced.clear();
    if (server)
    {
        server->close();
        server.reset();
        QLocalServer::removeServer(endpoint);
    }
    // Links before applications: a link names its application until it is gone.
    const QDeadlineTimer deadline(kDeliverOnShutdownMs);
    const QList<ApplicationLink*> links =
        findChildren<ApplicationLink*>(QString(), Qt::FindDirectChildrenOnly);
    for (ApplicationLink* link : links)
        link->Dispose(deadline);
    applications.clear();
}

void ApplicationManagerPrivate::Listen()
{
    // Links are served by the event loop; a process without an application object has none.
    if (!QCoreApplication::instance())
        return;
    const QString path = EndpointName(QCoreApplication::applicationPid());
    if (path.isEmpty())
        return;
    // A socket left under our process id can only belong to a dead process.
    QLocalServer::removeServer(path);
    server = std::make_unique<QLocalServer>();
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(path))
    {
        qCDebug(lcHub, "cannot listen on %s: %s", qUtf8Printable(path),
                qUtf8Printable(server->errorString()));
        server.reset();
        return;
    }
    endpoint = path;
    connect(server.get(), &QLocalServer::newConnection, this, &ApplicationManagerPrivate::OnNewConnection);
    listenCheck.start();
}

void ApplicationManagerPrivate::CheckListening()
{
    if (server && server->socketDescriptor() != -1)
        return;
    // Connections waiting to be taken are lost with the old socket; their peers knock again.
    server.reset();
    Listen();
}

ApplicationLink* ApplicationManagerPrivate::AdoptSocket(QLocalSocket* socket)
{
    LinkTransport* transport = LinkTransport::Adopt(socket, nullptr);
    if (!transport)
        return nullptr;
    auto* link = new ApplicationLink(transport, budget, this);
    connect(link, &ApplicationLink::FrameReceived, this, &ApplicationManagerPrivate::OnFrame);
    connect(link, &ApplicationLink::Closed, this, &ApplicationManagerPrivate::OnClosed);
    return link;
}

Application* ApplicationManagerPrivate::FindOrMakeApplication(qint64 processId,
                                                              Application::StartupError error)
{
    for (const auto& application : applications)
    {
        if (application->GetProcessId() == processId)
            return application.get();
    }
    applications.push_back(std::unique_ptr<Application>(new Application(processId, error)));
    return applications.back().get();
}

void ApplicationManagerPrivate::OnNewConnection()
{
    while (server && server->hasPendingConnections())
    {
        QLocalSocket* socket = server->nextPendingConnection();
        if (!socket)
            continue;
        ApplicationLink* link = AdoptSocket(socket);
        if (!link)
            continue;
        if (unintroduced.size() >= kMaxUnintroducedLinks)
        {
            ApplicationLink* oldest = unintroduced.front();
            unintroduced.pop_front();
            oldest->Close();
        }
        unintroduced.push_back(link);
        QTimer::singleShot(kIntroductionGraceMs, link, [link]() {
            if (!link->HelloSeen())
                link->Close();
        });
    }
    // Accepting can fail without a word, and the system then closes the endpoint.
    CheckListening();
}

template <typename Call> void ApplicationManagerPrivate::Tell(const Call& call)
{
    // A handler may add or remove handlers, or shut the whole hub down, while it is being told.
    const QPointer<ApplicationManagerPrivate> alive(this);
    const std::vector<ApplicationMessageHandler*> current = handlers;
    for (ApplicationMessageHandler* handler : current)
    {
        if (!alive)
            return;
        if (std::find(handlers.begin(), handlers.end(), handler) != handlers.end())
            call(handler);
    }
}

void ApplicationManagerPrivate::OnFrame(ApplicationLink* link, const QString& name, const QVariantMap& data)
{
    if (!link->HelloSeen())
    {
        // A peer introduces itself before anything else; a peer that does not is not one.
        bool ok = false;
        const qint64 processId = data.value(QStringLiteral("ProcessId")).toLongLong(&ok);
        // Where the system tells who is at the other end, a peer cannot stand for another
        // process, nor have the hub keep an application for every id it cares to name.
        const qint64 actual = link->PeerProcessId();
        if (name != ApplicationLink::kHelloName || !ok || processId <= 0 ||
            (actual > 0 && actual != processId))
        {
            link->Close();
            return;
        }
        link->SetHelloSeen();
        unintroduced.erase(std::remove(unintroduced.begin(), unintroduced.end(), link), unintroduced.end());
        Application* application = FindOrMakeApplication(processId, Application::NoError);
        application->AttachLink(link);
        Tell([application](ApplicationMessageHandler* handler) {
            handler->ApplicationLinkStarted(application);
        });
        return;
    }
    if (name == ApplicationLink::kHelloName)
        return;
    ApplicationMessage message(name, data);
    Tell([&message](ApplicationMessageHandler* handler) { handler->MessageReceived(&message); });
}

void ApplicationManagerPrivate::OnClosed(ApplicationLink* link)
{
    unintroduced.erase(std::remove(unintroduced.begin(), unintroduced.end(), link), unintroduced.end());
    for (const auto& application : applications)
    {
        if (application->m_link == link)
            application->m_link = nullptr;
    }
    link->deleteLater();
}

ApplicationManager::ApplicationManager(const QString& appName) : d(new ApplicationManagerPrivate(appName))
{
    d->Listen();
}

ApplicationManager::~ApplicationManager()
{
    delete d;
}

bool ApplicationManager::Initialize(const QString& appName)
{
    if (!s_instance)
        s_instance = new ApplicationManager(appName);
    return true;
}

void ApplicationManager::Uninitialize()
{
    delete s_instance;
    s_instance = nullptr;
}

ApplicationManager* ApplicationManager::GetInstance()
{
    return s_instance;
}

QString ApplicationManager::GetApplicationName() const
{
    return d->appName;
}

void ApplicationManager::SetCurrentLocale(const QString& locale)
{
    d->locale = locale;
}

QString ApplicationManager::GetCurrentLocale() const
{
    return d->locale;
}

QStringList ApplicationManager::ManifestFolders()
{
    QStringList folders;
    const QString extra = qEnvironmentVariable("VELMORA_APPLICATIONS_PATH");
    for (const QString& folder : extra.split(QDir::listSeparator(), Qt::SkipEmptyParts))
        folders << QDir::cleanPath(QDir(folder).absolutePath());
    for (const QString& data : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        folders << QDir::cleanPath(data + QStringLiteral("/Velmora/Applications"));
    folders.removeDuplicates();
    return folders;
}

QList<ApplicationInfo> ApplicationManager::GetAllInstalledApplications()
{
    return d->manifests.Applications();
}

QList<ApplicationInfo> ApplicationManager::GetInstalledApplications(const QString& applicationId,
                                                                    const QString& version)
{
    QList<ApplicationInfo> matching;
    if (applicationId.isEmpty())
        return matching;
    for (const ApplicationInfo& info : d->manifests.Applications())
    {
        if (info.GetId().compare(applicationId, Qt::CaseInsensitive) == 0 &&
            OstrelAdapterUtility::VersionCompare(version, info.GetVersion()))
            matching << info;
    }
    return matching;
}

Application* ApplicationManager::StartApplication(const ApplicationInfo& info, const QStringList& arguments,
                                                  const QMap<QString, QString>& environment,
                                                  Application::StartupError* error)
{
    const auto fail = [error](Application::StartupError why) -> Application* {
        if (error)
            *error = why;
        return nullptr;
    };
    if (!info.IsValid())
        return fail(Application::ApplicationNotFound);
    const QFileInfo program(info.GetExecutable());
    if (!program.exists() || !program.isFile())
        return fail(Application::ExecutableMissing);

    QProcessEnvironment merged = QProcessEnvironment::systemEnvironment();
    for (auto it = environment.cbegin(); it != environment.cend(); ++it)
        merged.insert(it.key(), it.value());

    QProcess process;
    process.setProgram(program.absoluteFilePath());
    process.setArguments(arguments);
    process.setProcessEnvironment(merged);
    process.setWorkingDirectory(program.absolutePath());
    qint64 processId = 0;
    if (!process.startDetached(&processId) || processId <= 0)
        return fail(Application::CouldNotStart);
    if (error)
        *error = Application::NoError;
    return d->FindOrMakeApplication(processId, Application::NoError);
}

Application* ApplicationManager::GetApplication(qint64 processId)
{
    if (processId <= 0)
        return nullptr;
    return d->FindOrMakeApplication(processId, Application::NoError);
}

void ApplicationManager::AddMessageHandler(ApplicationMessageHandler* handler)
{
    if (handler && std::find(d->handlers.begin(), d->handlers.end(), handler) == d->handlers.end())
        d->handlers.push_back(handler);
}

void ApplicationManager::RemoveMessageHandler(ApplicationMessageHandler* handler)
{
    d->handlers.erase(std::remove(d->handlers.begin(), d->handlers.end(), handler), d->handlers.end());
}

QString ApplicationManager::GetEndpoint() const
{
    return d->endpoint;
}

qint64 ApplicationManager::GetBufferedBytes() const
{
    return d->budget->bufferedBytes;
}

QString ApplicationManager::EndpointFor(qint64 processId)
{
    return EndpointName(processId);
}

} // namespace Velmora::OstrelAdapter
