#pragma once

// Where the library's own tools find the sample data they run on without any set-up: beside an
// installed tool ("../share/vmworkflow"), else in the source tree the tool was built from
// (VMWF_SOURCE_SHARE_DIR, set by the tool's build).

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

namespace VmWorkflowTool {

inline QString SampleDataFolder()
{
    const QString installed =
        QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(QStringLiteral("../share/vmworkflow"));
    if (QFileInfo(installed).isDir())
        return QDir::cleanPath(installed);
    return QStringLiteral(VMWF_SOURCE_SHARE_DIR);
}

inline QString DefaultSearchPaths()
{
    const QString samples = SampleDataFolder() + QStringLiteral("/workflows");
    return samples + QStringLiteral("/templates;") + samples + QStringLiteral("/user");
}

// The sample workflows come with sample products "installed" through their hub manifests.
inline void UseSampleApplications()
{
    QByteArray applications = QFile::encodeName(SampleDataFolder() + QStringLiteral("/applications"));
    const QByteArray configured = qgetenv("VELMORA_APPLICATIONS_PATH");
    if (!configured.isEmpty())
        applications += QDir::listSeparator().toLatin1() + configured;
    qputenv("VELMORA_APPLICATIONS_PATH", applications);
}

// The host application's manifest ships beside the tool (the build writes one too); it comes after
// whatever the environment names, so that a configured host wins.
inline void UseBuiltHostApplication()
{
    QByteArray applications = qgetenv("VELMORA_APPLICATIONS_PATH");
    if (!applications.isEmpty())
        applications += QDir::listSeparator().toLatin1();
    applications += QFile::encodeName(
        QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/Velmora/Applications")));
    qputenv("VELMORA_APPLICATIONS_PATH", applications);
}

} // namespace VmWorkflowTool
