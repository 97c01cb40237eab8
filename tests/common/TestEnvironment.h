// SPDX-License-Identifier: MIT
#pragma once

// Points every per-user and machine-wide folder the library reads at a private temporary
// folder, so that no test touches the real home folder or /etc. Call Setup() before the first
// use of the library (initTestCase is fine: the folders are read on every use).

#include <QDir>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>

namespace VmWorkflowTest {

class TestEnvironment
{
public:
    bool Setup()
    {
        if (!m_root.isValid())
            return false;
        const QString root = m_root.path();
        for (const char* sub : {"home", "data", "config", "runtime", "datadirs", "configdirs"})
            QDir(root).mkpath(QString::fromLatin1(sub));
        qputenv("HOME", QFile::encodeName(root + QStringLiteral("/home")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(root + QStringLiteral("/data")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + QStringLiteral("/config")));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root + QStringLiteral("/runtime")));
        qputenv("XDG_DATA_DIRS", QFile::encodeName(root + QStringLiteral("/datadirs")));
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root + QStringLiteral("/configdirs")));
        QFile::setPermissions(root + QStringLiteral("/runtime"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return true;
    }

    QString Root() const { return m_root.path(); }
    QString DataHome() const { return m_root.path() + QStringLiteral("/data"); }
    QString ConfigDirs() const { return m_root.path() + QStringLiteral("/configdirs"); }
    QString RuntimeDir() const { return m_root.path() + QStringLiteral("/runtime"); }
    QString DataDirs() const { return m_root.path() + QStringLiteral("/datadirs"); }

private:
    QTemporaryDir m_root;
};

} // namespace VmWorkflowTest
