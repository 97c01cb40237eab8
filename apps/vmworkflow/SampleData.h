// SPDX-License-Identifier: MIT
#pragma once

// Where the library's own tools find the sample data they run on without any set-up, relative to
// the tool's own folder: the build folder and an installation are laid out alike (bin/ beside
// share/), so neither needs a path written into the program.

#include "VmWorkflowInstallPaths.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>

namespace VmWorkflowTool {

inline QString BesideProgram(const char* relativePath)
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QLatin1Char('/') +
                           QString::fromUtf8(relativePath));
}

// The sample data folder, with links resolved so that the paths the tools print are the files'
// own.
inline QString SampleDataFolder()
{
    const QString folder = BesideProgram(VMWF_RELATIVE_SAMPLE_DIR);
    const QString canonical = QFileInfo(folder).canonicalFilePath();
    return canonical.isEmpty() ? folder : canonical;
}

// An installation under a prefix other than /usr keeps its machine settings (the product
// catalogue's folder) in <prefix>/etc/xdg; the settings store reads that folder after the ones the
// environment names, so a machine's own settings still win.
inline void UseInstalledMachineSettings()
{
    const QString folder = BesideProgram(VMWF_RELATIVE_SETTINGS_DIR);
    if (!QFileInfo(folder + QStringLiteral("/Velmora")).isDir())
        return;
    QString folders = QString::fromLocal8Bit(qgetenv("XDG_CONFIG_DIRS"));
    if (folders.isEmpty())
        folders = QStringLiteral("/etc/xdg");
    const QStringList listed = folders.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& entry : listed)
        if (QDir::cleanPath(entry) == folder)
            return;
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(folders + QLatin1Char(':') + folder));
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
    applications += QFile::encodeName(BesideProgram(VMWF_RELATIVE_APPLICATIONS_DIR));
    qputenv("VELMORA_APPLICATIONS_PATH", applications);
}

} // namespace VmWorkflowTool
