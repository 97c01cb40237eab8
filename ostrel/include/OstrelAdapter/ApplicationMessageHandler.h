#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

namespace Velmora::OstrelAdapter {

class Application;
class ApplicationMessage;

// Told what arrives over the hub's links, on the thread that initialised the hub, from its event
// loop. The message lives only during the call; the application until Uninitialize.
class OSTRELADAPTER_EXPORT ApplicationMessageHandler
{
public:
    virtual ~ApplicationMessageHandler();
    virtual void MessageReceived(ApplicationMessage* message) = 0;
    virtual void ApplicationLinkStarted(Application* application) = 0;
};

} // namespace Velmora::OstrelAdapter
