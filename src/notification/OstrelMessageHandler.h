// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include <QObject>

namespace Velmora::WorkflowCore {

// Turns what the hub delivers into Qt signals, so that the notification manager can follow the
// hub with ordinary slots. The message lives only for the duration of the signal.
class OstrelMessageHandler : public QObject, public OstrelAdapter::ApplicationMessageHandler
{
    Q_OBJECT
public:
    OstrelMessageHandler() = default;
    ~OstrelMessageHandler() override;

    void MessageReceived(OstrelAdapter::ApplicationMessage* message) override;

Q_SIGNALS:
    void OstrelMessageReceived(Velmora::OstrelAdapter::ApplicationMessage* message);
    // The signal shares its name and signature with the hub's callback, so it is the callback:
    // the hub telling the handler of a link is the emission itself.
    void ApplicationLinkStarted(Velmora::OstrelAdapter::Application* application) override;
};

} // namespace Velmora::WorkflowCore
