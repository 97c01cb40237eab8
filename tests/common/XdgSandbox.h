// SPDX-License-Identifier: MIT
#pragma once

// One private home for a test and every process it starts: HOME, every XDG folder and the temporary
// folder (TMPDIR) point into a temporary folder, so that no test touches the real home folder, /etc,
// the machine's temporary folder or another test's run.
//
// Qt's test mode is switched on, which makes QStandardPaths answer with folders under
// "$HOME/.qttest" in this process; the XDG variables are pointed at those same folders, so that a
// child process (which is not in test mode) finds what this process wrote. Call Setup() before the
// first use of a library; tests that move the user's folders mid-test call MoveHome().

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>

namespace TestSupport {

class XdgSandbox
{
public:
    XdgSandbox() = default;
    // The sandbox's folder made from templatePath (QTemporaryDir's form, "...XXXXXX"), for a test
    // whose folder must lie where other users can reach it.
    explicit XdgSandbox(const QString& templatePath) : m_root(templatePath) {}

    bool Setup()
    {
        if (!m_root.isValid())
            return false;
        QStandardPaths::setTestModeEnabled(true);
        for (const char* sub : {"runtime", "datadirs", "configdirs", "tmp"})
            QDir(m_root.path()).mkpath(QString::fromLatin1(sub));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(RuntimeDir()));
        // What the library and the hosts it starts leave in the temporary folder (the copy of a
        // launched workflow stays there by design) goes with the sandbox, not into the machine's.
        qputenv("TMPDIR", QFile::encodeName(TempDir()));
        qputenv("XDG_DATA_DIRS", QFile::encodeName(DataDirs()));
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(ConfigDirs()));
        // The runtime folder must be the user's alone, as a session's is.
        if (!QFile::setPermissions(RuntimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) ||
            !MoveHome(StartHome()))
            return false;
        return QDir().mkpath(DataHome()) && QDir().mkpath(ConfigHome());
    }

    // Makes home the user's home folder: the data, configuration and cache folders follow it, in
    // this process and in the children it starts from now on. Nothing is created: home need not
    // exist, nor be a folder (a test may point it at a file to make the user's folders impossible
    // to create). MoveHome(StartHome()) goes back to the home Setup() made.
    bool MoveHome(const QString& home)
    {
        m_home = home;
        qputenv("HOME", QFile::encodeName(home));
        qputenv("XDG_DATA_HOME", QFile::encodeName(DataHome()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(ConfigHome()));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(CacheHome()));
        // Both views of the data folder must agree, or a child would look elsewhere.
        return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) == DataHome();
    }

    QString Root() const { return m_root.path(); }
    QString Home() const { return m_home; }
    QString StartHome() const { return m_root.path() + QStringLiteral("/home"); }
    QString DataHome() const { return m_home + QStringLiteral("/.qttest/share"); }
    QString ConfigHome() const { return m_home + QStringLiteral("/.qttest/config"); }
    QString CacheHome() const { return m_home + QStringLiteral("/.qttest/cache"); }
    QString RuntimeDir() const { return m_root.path() + QStringLiteral("/runtime"); }
    QString DataDirs() const { return m_root.path() + QStringLiteral("/datadirs"); }
    QString ConfigDirs() const { return m_root.path() + QStringLiteral("/configdirs"); }
    QString TempDir() const { return m_root.path() + QStringLiteral("/tmp"); }

private:
    QTemporaryDir m_root;
    QString m_home;
};

} // namespace TestSupport
