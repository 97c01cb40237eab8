#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QList>
#include <QString>

namespace Velmora::OstrelAdapter {

// One installed application as its manifest describes it. A default-constructed info names no
// application: starting it fails with ApplicationNotFound.
class OSTRELADAPTER_EXPORT ApplicationInfo
{
public:
    ApplicationInfo() = default;
    ApplicationInfo(const QString& id, const QString& name, const QString& version, const QString& executable,
                    qint64 infoId);

    bool IsValid() const { return !m_id.isEmpty() && !m_executable.isEmpty(); }
    QString GetId() const { return m_id; }
    QString GetName() const { return m_name; }
    // The version as written, such as "2017.0".
    QString GetVersion() const { return m_version; }
    // The dotted components of the version; a component that is not a number counts as 0.
    QList<unsigned int> GetNumericVersion() const;
    // The absolute path of the program.
    QString GetExecutable() const { return m_executable; }
    qint64 GetInfoId() const { return m_infoId; }

private:
    QString m_id;
    QString m_name;
    QString m_version;
    QString m_executable;
    qint64 m_infoId = 0;
};

} // namespace Velmora::OstrelAdapter
