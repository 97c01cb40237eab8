// SPDX-License-Identifier: MIT
#pragma once

#include "ApplicationLink.h"
#include "ManifestCatalog.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QLocalServer>
#include <QObject>
#include <QTimer>

#include <deque>

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
    // Listens again when the endpoint was lost: the system closes it when accepting fails once,
    // for instance while every file descriptor is taken.
    void CheckListening();
    // Null when the socket could not be taken over; it is gone then.
    ApplicationLink* AdoptSocket(QLocalSocket* socket);
    Application* FindOrMakeApplication(qint64 processId, Application::StartupError error);

    void OnNewConnection();
    void OnFrame(ApplicationLink* link, const QString& name, const QVariantMap& data);
    void OnClosed(ApplicationLink* link);
    // Calls call(handler) for each registered handler in order.
    template <typename Call> void Tell(const Call& call);

    // How long shutting the hub down waits, at most, for messages already sent to leave.
    static constexpr int kDeliverOnShutdownMs = 2000;
    // A process that connects introduces itself at once; one that has not within this time, or
    // that is the oldest of too many that have not yet, is let go, so that idle connections
    // cannot take every file descriptor.
    static constexpr int kIntroductionGraceMs = 5000;
    static constexpr std::size_t kMaxUnintroducedLinks = 64;
    // How often a lost endpoint is tried again.
    static constexpr int kListenCheckMs = 250;

    QString appName;
    QString locale;
    QString endpoint;
    std::unique_ptr<QLocalServer> server;
    QTimer listenCheck;
    std::shared_ptr<LinkBudget> budget = std::make_shared<LinkBudget>();
    std::deque<ApplicationLink*> unintroduced; // oldest first
    ManifestCatalog manifests;
    std::vector<std::unique_ptr<Application>> applications;
    std::vector<ApplicationMessageHandler*> handlers;
};

} // namespace Velmora::OstrelAdapter
