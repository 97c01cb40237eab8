// SPDX-License-Identifier: MIT
#include "notification/OstrelMessageHandler.h"

namespace Velmora::WorkflowCore {

OstrelMessageHandler::~OstrelMessageHandler() = default;

void OstrelMessageHandler::MessageReceived(OstrelAdapter::ApplicationMessage* message)
{
    Q_EMIT OstrelMessageReceived(message);
}

} // namespace Velmora::WorkflowCore
