// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QMap>
#include <QString>
#include <QVariant>

namespace Velmora::OstrelAdapter {

/// What every hub message carries: a name and a map of values. Both are kept as given; the values
/// that cross a link are the ones QDataStream can write (texts, numbers, lists, maps, byte arrays).
class OSTRELADAPTER_EXPORT MessageBase
{
public:
    /// Keeps name and data as given.
    MessageBase(const QString& name, const QMap<QString, QVariant>& data);
    virtual ~MessageBase();

    /// The message's name.
    QString GetName() const { return m_name; }
    /// A copy of the message's values.
    QMap<QString, QVariant> GetData() const { return m_data; }

private:
    QString m_name;
    QMap<QString, QVariant> m_data;
};

} // namespace Velmora::OstrelAdapter
