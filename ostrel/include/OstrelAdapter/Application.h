// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QObject>
#include <QString>

#include <memory>

namespace Velmora::OstrelAdapter {

class ApplicationMessage;
class ApplicationLink;

/// A running application the hub knows by process id: one this process started, or a peer that
/// linked to it. Owned by the application manager; valid until Uninitialize.
class OSTRELADAPTER_EXPORT Application : public QObject
{
    Q_OBJECT
public:
    /// Why StartApplication() failed.
    enum StartupError
    {
        NoError = 0,         ///< started
        ApplicationNotFound, ///< no installed application answers to the request
        ExecutableMissing,   ///< the manifest names a program that is not there
        CouldNotStart        ///< the program is there but the system would not start it
    };

    ~Application() override;

    /// What Connect returns.
    enum ConnectResult
    {
        Linked = 0,          ///< linked now, or already linked
        NotListening = 1,    ///< no endpoint of that process answered before the time-out
        NoEndpointFolder = 2 ///< no hub is initialised here, or it has no private folder for endpoints
    };

    /// Links to the application's endpoint, knocking again every few milliseconds until timeoutMs
    /// has passed, since a process just started needs a moment before it listens. Blocks the
    /// calling thread meanwhile. Returns a ConnectResult: 0 on success. The linked process's
    /// handlers are told ApplicationLinkStarted with an application standing for this process.
    int Connect(int timeoutMs);
    /// Whether a link to the application is open now.
    bool IsConnected() const;
    /// Queues one message on the link and returns at once; the event loop writes it out, and
    /// Uninitialize still delivers what is queued. Messages on one link arrive in the order sent.
    /// False without a link, for a null message or one without a name, and for a message whose
    /// frame would exceed the 16 MiB limit. The message stays the caller's.
    bool Send(ApplicationMessage* message);
    /// The application's process id; 0 for one that failed to start.
    qint64 GetProcessId() const { return m_processId; }
    /// NoError for an application that started or linked.
    StartupError GetStartupError() const { return m_startupError; }

private:
    friend class ApplicationManager;
    friend class ApplicationManagerPrivate;
    Application(qint64 processId, StartupError error);
    void AttachLink(ApplicationLink* link);

    qint64 m_processId;
    StartupError m_startupError;
    ApplicationLink* m_link = nullptr; ///< owned by the manager
};

} // namespace Velmora::OstrelAdapter
