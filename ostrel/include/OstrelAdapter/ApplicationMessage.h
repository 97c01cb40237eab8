// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/MessageBase.h>
#include <OstrelAdapter/OstrelAdapterExport.h>

namespace Velmora::OstrelAdapter {

/// A message between linked applications. Names of the system's messages end in "Msg"; an empty
/// name cannot be sent.
class OSTRELADAPTER_EXPORT ApplicationMessage : public MessageBase
{
public:
    /// A message named name carrying data.
    ApplicationMessage(const QString& name, const QMap<QString, QVariant>& data);
};

} // namespace Velmora::OstrelAdapter
