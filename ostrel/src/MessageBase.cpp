// SPDX-License-Identifier: MIT
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>
#include <OstrelAdapter/MessageBase.h>

namespace Velmora::OstrelAdapter {

MessageBase::MessageBase(const QString& name, const QMap<QString, QVariant>& data)
    : m_name(name), m_data(data)
{
}

MessageBase::~MessageBase() = default;

ApplicationMessage::ApplicationMessage(const QString& name, const QMap<QString, QVariant>& data)
    : MessageBase(name, data)
{
}

ApplicationMessageHandler::~ApplicationMessageHandler() = default;

} // namespace Velmora::OstrelAdapter
