// SPDX-License-Identifier: MIT
#include <OstrelAdapter/ApplicationInfo.h>

#include <QStringList>

namespace Velmora::OstrelAdapter {

ApplicationInfo::ApplicationInfo(const QString& id, const QString& name, const QString& version,
                                 const QString& executable, qint64 infoId)
    : m_id(id), m_name(name), m_version(version), m_executable(executable), m_infoId(infoId)
{
}

QList<unsigned int> ApplicationInfo::GetNumericVersion() const
{
    QList<unsigned int> components;
    for (const QString& piece : m_version.split(QLatin1Char('.'), Qt::SkipEmptyParts))
        components << piece.trimmed().toUInt();
    return components;
}

} // namespace Velmora::OstrelAdapter
