#pragma once

#include "ApplicationLink.h"
#include "ManifestCatalog.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QLocalServer>
#include <QObject>

#include <memory>
#include <vector>

namespace Velmora::OstrelAdapter {

class ApplicationMessageHandler;

class ApplicationManagerPrivate : public QObject
{
    Q_OBJECT
public:
    explicit ApplicationManagerPrivate(const QString& appName);
    ~ApplicationManagerPrivate() override;

    void Listen();
    ApplicationLink* AdoptSocket(QLocalSocket* socket);
    Application* FindOrMakeApplication(qint64 processId, Application::StartupError error);

    void OnNewConnection();
    void OnFrame(ApplicationLink* link, const QString& name, const QVariantMap& data);
    void OnClosed(ApplicationLink* link);
    // Calls call(handler) for each registered handler in order.
    template<typename Call>
    void Tell(const Call& call);

    // How long shutting the hub down waits, at most, for messages already sent to leave.
    static constexpr int kDeliverOnShutdownMs = 2000;

    QString appName;
    QString locale;
    QString endpoint;
    std::unique_ptr<QLocalServer> server;
    ManifestCatalog manifests;
    std::vector<std::unique_ptr<Application>> applications;
    std::vector<ApplicationMessageHandler*> handlers;
};

} // namespace Velmora::OstrelAdapter
