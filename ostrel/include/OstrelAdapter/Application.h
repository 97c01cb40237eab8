#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QObject>
#include <QString>

#include <memory>

namespace Velmora::OstrelAdapter {

class ApplicationMessage;
class ApplicationLink;

// A running application the hub knows by process id: one this process started, or a peer that
// linked to it. Owned by the application manager; valid until Uninitialize.
class OSTRELADAPTER_EXPORT Application : public QObject
{
    Q_OBJECT
public:
    enum StartupError
    {
        NoError = 0,
        ApplicationNotFound, // no installed application answers to the request
        ExecutableMissing,   // the manifest names a program that is not there
        CouldNotStart        // the program is there but the system would not start it
    };

    ~Application() override;

    // Links to the application's endpoint, waiting up to timeoutMs for it to listen. 0 when
    // linked (or already linked), 1 when no endpoint answered in time, 2 when the hub has no
    // endpoint folder.
    int Connect(int timeoutMs);
    bool IsConnected() const;
    // Sends one message over the link; false without a link. The message stays the caller's.
    bool Send(ApplicationMessage* message);
    qint64 GetProcessId() const { return m_processId; }
    StartupError GetStartupError() const { return m_startupError; }

private:
    friend class ApplicationManager;
    friend class ApplicationManagerPrivate;
    Application(qint64 processId, StartupError error);
    void AttachLink(ApplicationLink* link);

    qint64 m_processId;
    StartupError m_startupError;
    ApplicationLink* m_link = nullptr; // owned by the manager
};

} // namespace Velmora::OstrelAdapter
