// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

namespace Velmora::OstrelAdapter {

class Application;
class ApplicationMessage;

/// Told what arrives over the hub's links, on the thread that initialised the hub, from its event
/// loop. The message lives only during the call; the application until Uninitialize.
class OSTRELADAPTER_EXPORT ApplicationMessageHandler
{
public:
    virtual ~ApplicationMessageHandler();
    /// A message arrived; message lives only during the call.
    virtual void MessageReceived(ApplicationMessage* message) = 0;
    /// Another process linked to this one; application stands for it and is owned by the manager.
    virtual void ApplicationLinkStarted(Application* application) = 0;
};

} // namespace Velmora::OstrelAdapter
