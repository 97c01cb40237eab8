// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

/// The application hub: installed applications from their manifests, starting them, and messages
/// between linked processes.
namespace Velmora::OstrelAdapter {

class ApplicationManagerPrivate;
class ApplicationMessageHandler;

/// The per-process entry into the application hub. One instance exists between Initialize and
/// Uninitialize; GetInstance returns null outside that window. While it exists a process with a
/// QCoreApplication listens on its own endpoint, named by its process id in the user's private
/// runtime folder; links are served by that application's event loop.
class OSTRELADAPTER_EXPORT ApplicationManager
{
public:
    /// Creates the instance for the application named appName. A second call while an instance
    /// exists keeps the first one and returns true.
    static bool Initialize(const QString& appName);
    /// Destroys the instance; harmless when there is none. Stops listening and removes this
    /// process's endpoint, waits up to two seconds in all for messages already sent to reach their
    /// peers, closes every link and deletes every Application the manager handed out. A handler
    /// may call it while being told of a message; no handler is told anything afterwards.
    static void Uninitialize();
    /// The instance, or null outside Initialize() and Uninitialize().
    static ApplicationManager* GetInstance();

    /// The name given to Initialize().
    QString GetApplicationName() const;

    /// The locale the hub uses for the texts it shows (start-up errors, application names).
    void SetCurrentLocale(const QString& locale);
    /// The locale set last; empty before SetCurrentLocale().
    QString GetCurrentLocale() const;

    /// The installed applications whose id equals applicationId ignoring case and whose version
    /// satisfies version (OstrelAdapterUtility::VersionCompare), in manifest order. Every version of
    /// an application is listed; of manifests with the same id and the same version only the first
    /// counts. Manifests are read again only when one of their folders changed.
    QList<ApplicationInfo> GetInstalledApplications(const QString& applicationId, const QString& version);
    /// Every installed application, in manifest order.
    QList<ApplicationInfo> GetAllInstalledApplications();
    /// The folders manifests are read from, in order: VELMORA_APPLICATIONS_PATH first, then
    /// Velmora/Applications under each data folder.
    static QStringList ManifestFolders();

    /// Starts the application's program detached, in the program's own folder, with exactly these
    /// arguments (no shell sees them) and the current environment overlaid by environment (its
    /// entries win). Null on failure, with *error saying why (when error is not null):
    /// ApplicationNotFound for an info that names no application, ExecutableMissing when the
    /// program is not on disk, CouldNotStart when the system would not run it; none of them waits.
    /// On success *error is NoError. The returned application is owned by the manager and stays
    /// valid until Uninitialize; it is not linked yet (see Application::Connect).
    Application* StartApplication(const ApplicationInfo& info, const QStringList& arguments,
                                  const QMap<QString, QString>& environment,
                                  Application::StartupError* error);
    /// The manager's application for a process id, made on first request (null for ids below 1);
    /// owned by the manager until Uninitialize. The same id always gives the same application.
    Application* GetApplication(qint64 processId);

    /// Handlers are not owned and are told, in the order added, every message arriving on any link
    /// and every link another process starts with this one, on the thread that called Initialize,
    /// from its event loop. Adding a handler twice has no effect; a removed handler is told nothing
    /// more, even when it is removed while another handler is being told.
    void AddMessageHandler(ApplicationMessageHandler* handler);
    /// Forgets handler; harmless for one never added.
    void RemoveMessageHandler(ApplicationMessageHandler* handler);

    /// The bytes all links hold right now, received but not yet told and queued but not yet
    /// written. Never more than 64 MiB: a link that would take more is closed.
    qint64 GetBufferedBytes() const;

    /// This process's endpoint, empty when the hub could not listen.
    QString GetEndpoint() const;
    /// The endpoint of the process with that id.
    static QString EndpointFor(qint64 processId);

    ApplicationManager(const ApplicationManager&) = delete;
    ApplicationManager& operator=(const ApplicationManager&) = delete;

private:
    explicit ApplicationManager(const QString& appName);
    ~ApplicationManager();

    friend class ApplicationManagerPrivate;
    friend class Application;
    ApplicationManagerPrivate* d;
};

} // namespace Velmora::OstrelAdapter
