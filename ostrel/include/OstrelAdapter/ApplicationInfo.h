// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QList>
#include <QString>

namespace Velmora::OstrelAdapter {

/// One installed application as its manifest describes it. A default-constructed info names no
/// application: starting it fails with ApplicationNotFound.
class OSTRELADAPTER_EXPORT ApplicationInfo
{
public:
    ApplicationInfo() = default;
    /// An application as a manifest describes it; executable is an absolute path.
    ApplicationInfo(const QString& id, const QString& name, const QString& version, const QString& executable,
                    qint64 infoId);

    /// True when the info names an application and its program.
    bool IsValid() const { return !m_id.isEmpty() && !m_executable.isEmpty(); }
    /// The id the application is asked for by, such as "Id_VmWorkflowHost"; empty for a default-constructed
    /// info.
    QString GetId() const { return m_id; }
    /// The name shown to users.
    QString GetName() const { return m_name; }
    /// The version as written, such as "2017.0".
    QString GetVersion() const { return m_version; }
    /// The dotted components of the version; a component that is not a number counts as 0.
    QList<unsigned int> GetNumericVersion() const;
    /// The absolute path of the program.
    QString GetExecutable() const { return m_executable; }
    /// The number the manifest gives the installation; 0 when it gives none.
    qint64 GetInfoId() const { return m_infoId; }

private:
    QString m_id;
    QString m_name;
    QString m_version;
    QString m_executable;
    qint64 m_infoId = 0;
};

} // namespace Velmora::OstrelAdapter
